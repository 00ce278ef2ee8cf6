#include <ZrUtils/ZrNetwork.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using ZrUtils::ZrNetwork;

namespace
{
// The symbol as the qrencode command line draws it ("-t ASCII": two characters per
// module, '#' for dark), with our version, level and no quiet zone.
QVector<QVector<bool>> referenceModules(const QString& text)
{
    QProcess qrencode;
    qrencode.start("qrencode", {"-t", "ASCII", "-v", "2", "-l", "Q", "-m", "0", "-o", "-", text});
    QVector<QVector<bool>> rows;
    if (!qrencode.waitForFinished(20000))
        return rows;
    for (const QByteArray& line : qrencode.readAllStandardOutput().split('\n')) {
        if (line.isEmpty())
            continue;
        QVector<bool> row;
        for (int i = 0; i < line.size(); i += 2)
            row.append(line.at(i) == '#');
        rows.append(row);
    }
    return rows;
}

QString zbarDecode(const QString& pngPath)
{
    QProcess zbar;
    zbar.start("zbarimg", {"--raw", "-q", pngPath});
    if (!zbar.waitForFinished(60000))
        return "<zbarimg timed out>";
    QByteArray out = zbar.readAllStandardOutput();
    if (out.endsWith('\n'))
        out.chop(1);
    return QString::fromUtf8(out);
}
} // namespace

class QrCodeTest : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_dir;

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
    }

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
    void moduleGridOff()
    {
        QFETCH(QSize, size);
        QFETCH(int, margin);
        QFETCH(int, side);
        QFETCH(int, modulePixels);
        const QString text = "https://example.com"; // fits version 2 at level Q
        const QVector<QVector<bool>> modules = referenceModules(text);
        QCOMPARE(modules.size(), 25); // version 2

        const QImage image = ZrNetwork::GenerateQRCode(text, size, margin);
        QCOMPARE(image.size(), QSize(side, side));
        QCOMPARE(image.format(), QImage::Format_ARGB32);
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                const int mx = (x - margin) / modulePixels, my = (y - margin) / modulePixels;
                const bool inCode = x >= margin && y >= margin && mx < 25 && my < 25;
                const QRgb expected = inCode && modules[my][mx] ? qRgb(0, 0, 0) : qRgb(255, 255, 255);
                if (image.pixel(x, y) != expected)
                    QFAIL(qPrintable(QString("pixel %1,%2 is wrong").arg(x).arg(y)));
            }
        }
    }

    void zbarCannotDecode_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("side");
        QTest::addColumn<int>("margin");
        QTest::newRow("short") << "hello" << 250 << 20;
        QTest::newRow("withoutMargin") << "https://example.com/?q=1&r=2" << 250 << 0;
        QTest::newRow("fractionalModules") << "https://example.com/download/setup.dmg" << 333 << 17;
        QTest::newRow("nonAscii") << QStringLiteral(
            "Gr\u00fc\u00dfe aus K\u00f6ln \u2014 \u6771\u4eac \u2713")
                                  << 300 << 20;
        QTest::newRow("long") << QString(1200, QLatin1Char('x')).replace(7, 3, "abc") << 900 << 40;
    }
    void zbarCannotDecode()
    {
        QFETCH(QString, text);
        QFETCH(int, side);
        QFETCH(int, margin);
        const QImage image = ZrNetwork::GenerateQRCode(text, QSize(side, side), margin);
        QVERIFY(!image.isNull());
        const QString path = m_dir.filePath("code.png");
        QVERIFY(image.save(path));
        QCOMPARE(zbarDecode(path), text);
    }

    void badInputCrashes_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("margin");
        QTest::addColumn<int>("side"); // 0: a null image
        QTest::newRow("emptyText") << QString() << QSize(250, 250) << 10 << 0;
        QTest::newRow("beyondLargestSymbol") << QString(3000, QLatin1Char('a')) << QSize(250, 250) << 10 << 0;
        QTest::newRow("zeroSize") << "hello" << QSize(0, 250) << 10 << 0;
        QTest::newRow("negativeSize") << "hello" << QSize(-5, -5) << 0 << 0;
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
        const QImage image = ZrNetwork::GenerateQRCode(text, size, margin);
        QCOMPARE(image.isNull(), side == 0);
        if (side)
            QCOMPARE(image.size(), QSize(side, side));
    }
};

QTEST_GUILESS_MAIN(QrCodeTest)
#include "tst_qrcode.moc"
