#include <ZrUtils/ZrNetwork.h>

#include <QtTest>

using ZrUtils::ZrNetwork;

namespace
{
QByteArray run(const QString& program, const QStringList& args)
{
    QProcess process;
    process.start(program, args);
    process.waitForFinished(60000);
    return process.readAllStandardOutput();
}
} // namespace

class QrCodeTest : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

private Q_SLOTS:
    void moduleGridOff_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("margin");
        QTest::addColumn<int>("side");
        QTest::addColumn<int>("modulePixels");
        QTest::newRow("tenPixelModules") << QSize(250, 250) << 0 << 250 << 10;
        QTest::newRow("marginIgnored") << QSize(250, 250) << 25 << 250 << 8;
        QTest::newRow("widthTakenForSide") << QSize(300, 200) << 0 << 200 << 8;
        QTest::newRow("heightTakenForSide") << QSize(275, 310) << 25 << 275 << 9;
    }
    // Pixel by pixel against the symbol as the qrencode command line draws it ("-t ASCII":
    // two characters per module, '#' for dark), with our version, level and no quiet zone.
    void moduleGridOff()
    {
        QFETCH(QSize, size);
        QFETCH(int, margin);
        QFETCH(int, side);
        QFETCH(int, modulePixels);
        const QString text = "https://example.com"; // fits version 2 (25 modules) at level Q
        const QList<QByteArray> modules
            = run("qrencode", {"-t", "ASCII", "-v", "2", "-l", "Q", "-m", "0", "-o", "-", text}).split('\n');
        QCOMPARE(modules.size(), 26); // and an empty last line
        const QImage image = ZrNetwork::GenerateQRCode(text, size, margin);
        QCOMPARE(image.size(), QSize(side, side));
        QCOMPARE(image.format(), QImage::Format_ARGB32);
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                const int mx = (x - margin) / modulePixels, my = (y - margin) / modulePixels;
                const bool dark
                    = x >= margin && y >= margin && mx < 25 && my < 25 && modules[my][2 * mx] == '#';
                if (image.pixel(x, y) != (dark ? qRgb(0, 0, 0) : qRgb(255, 255, 255)))
                    QFAIL(qPrintable(QString("pixel %1,%2 is wrong").arg(x).arg(y)));
            }
        }
    }

    void zbarCannotDecode_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("side");
        QTest::addColumn<int>("margin");
        QTest::newRow("withoutMargin") << "https://example.com/?q=1&r=2" << 250 << 0;
        QTest::newRow("fractionalModules") << "https://example.com/download/setup.dmg" << 333 << 17;
        QTest::newRow("nonAscii") << "Grüße aus Köln — 東京 ✓" << 300 << 20;
        QTest::newRow("long") << QString(1200, 'x').replace(7, 3, "abc") << 900 << 40;
    }
    void zbarCannotDecode()
    {
        QFETCH(QString, text);
        QFETCH(int, side);
        QFETCH(int, margin);
        const QString path = m_dir.filePath("code.png");
        QVERIFY(ZrNetwork::GenerateQRCode(text, QSize(side, side), margin).save(path));
        QCOMPARE(QString::fromUtf8(run("zbarimg", {"--raw", "-q", path})), text + '\n');
    }

    void badInputCrashes_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("margin");
        QTest::addColumn<int>("side"); // 0: a null image
        QTest::newRow("emptyText") << QString() << QSize(250, 250) << 10 << 0;
        QTest::newRow("beyondLargestSymbol") << QString(3000, 'a') << QSize(250, 250) << 10 << 0;
        QTest::newRow("zeroSize") << "hello" << QSize(0, 250) << 10 << 0;
        QTest::newRow("negativeMargin") << "hello" << QSize(100, 100) << -20 << 100;
        QTest::newRow("marginBeyondSide") << "hello" << QSize(100, 100) << 80 << 100;
    }
    void badInputCrashes()
    {
        QFETCH(QString, text);
        QFETCH(QSize, size);
        QFETCH(int, margin);
        QFETCH(int, side);
        if (text.size() > 2000)
            QTest::ignoreMessage(QtInfoMsg, "ZrNetwork: QR encoding failed, errno 34"); // ERANGE
        QCOMPARE(ZrNetwork::GenerateQRCode(text, size, margin).size(), QSize(side, side)); // 0 x 0: null
    }
};

QTEST_GUILESS_MAIN(QrCodeTest)
#include "tst_qrcode.moc"
