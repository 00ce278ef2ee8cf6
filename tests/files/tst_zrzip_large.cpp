#include "FileHelpers.h"

#include <QtTest>

// Archives past every 32-bit limit of the zip format, checked against the peers: a file
// over 4 GiB and more than 65,535 entries. Each is packed and unpacked in a separate
// process, whose peak memory must stay small however large the file.
static const qint64 BigFileSize = (qint64(5) << 30) + 12345; // not a multiple of any buffer
static const int ManyFiles = 70000;
// However large the file; an archive of many entries costs some memory per entry.
static const qint64 BigFilePeakKiB = 64 << 10;
static const qint64 ManyFilesPeakKiB = 96 << 10;

// Reads every entry to its end, so zipfile checks each checksum, and prints what it found
// without writing it anywhere: "name size bytes read", then "zeros" for an entry of
// zeros only or the entry itself.
static const char ListingScript[] = R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as z:
    for info in z.infolist():
        read, zeros, first = 0, True, b''
        with z.open(info) as f:
            for chunk in iter(lambda: f.read(1 << 20), b''):
                first = first or chunk
                read += len(chunk)
                zeros = zeros and chunk.count(0) == len(chunk)
        print(info.filename, info.file_size, read, 'zeros' if zeros and read else first.decode())
)";

class TestZrZipLarge : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

    // Runs zippeak and checks its result and its peak memory over idle.
    static void runWithinMemory(const QStringList& arguments, [[maybe_unused]] qint64 limitKiB)
    {
        QProcess zippeak;
        zippeak.start(ZIPPEAK, arguments);
        QVERIFY(zippeak.waitForFinished(600000));
        const QList<QByteArray> out = zippeak.readAllStandardOutput().trimmed().split(' ');
        QCOMPARE(out.value(0), QByteArray("true"));
        const qint64 peak = out.value(1).toLongLong();
        qInfo("%s: %lld KiB peak over idle", qPrintable(arguments.first()), peak);
#ifndef ZRUTILS_SANITIZED // the sanitizers' own bookkeeping grows with the work done
        QVERIFY2(peak < limitKiB, qPrintable(QString::number(peak)));
#endif
    }
    static QByteArray run(const QString& program, const QStringList& arguments)
    {
        QProcess process;
        process.start(program, arguments);
        process.waitForFinished(600000);
        return process.exitCode() == 0 ? process.readAllStandardOutput() : QByteArray("failed");
    }
    static void verifyZeros(const QString& path)
    {
        QCOMPARE(QFileInfo(path).size(), BigFileSize);
        QCOMPARE(QProcess::execute("cmp", {"-s", "-n", QString::number(BigFileSize), path, "/dev/zero"}), 0);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        for (const char* tool : {"unzip", "python3", "zip"})
            REQUIRE_TOOL(tool);
    }

    void fileOver4GiBTruncated()
    {
        const QString folder = m_dir.filePath("big"), big = folder + "/big.bin";
        QVERIFY(writeFile(big, {}) && QFile::resize(big, BigFileSize)); // sparse: all zeros
        runWithinMemory({"pack", folder}, BigFilePeakKiB);
        const QString archive = folder + "/big.zip";

        QCOMPARE(run("unzip", {"-tq", archive}).left(9), QByteArray("No errors"));
        const QByteArray size = QByteArray::number(BigFileSize);
        QCOMPARE(run("python3", {"-c", ListingScript, archive}), "big.bin " + size + " " + size + " zeros\n");
        const QString out = m_dir.filePath("big-out");
        runWithinMemory({"unpack", archive, out}, BigFilePeakKiB);
        verifyZeros(out + "/big.bin");
        QVERIFY(QDir(out).removeRecursively());

        // The other way: zip's own ZIP64 archive, stored so that making it is quick.
        QVERIFY(QFile::remove(archive));
        const QString byZip = m_dir.filePath("big-by-zip.zip");
        QCOMPARE(QProcess::execute("zip", {"-q0j", byZip, big}), 0);
        runWithinMemory({"unpack", byZip, out}, BigFilePeakKiB);
        verifyZeros(out + "/big.bin");
        QVERIFY(QFile::remove(byZip));
    }

    void manyEntriesLost()
    {
        const QString folder = m_dir.filePath("many");
        for (int i = 0; i < ManyFiles; ++i)
            QVERIFY(writeFile(
                folder + QString("/%1.txt").arg(i, 5, 10, QLatin1Char('0')), QByteArray::number(i)));
        runWithinMemory({"pack", folder}, ManyFilesPeakKiB);
        const QString archive = folder + "/many.zip";
        QCOMPARE(run("unzip", {"-tq", archive}).left(9), QByteArray("No errors"));
        const QList<QByteArray> listed = run("python3", {"-c", ListingScript, archive}).split('\n');
        QCOMPARE(listed.size(), ManyFiles + 1);
        QCOMPARE(listed.at(ManyFiles - 1), QByteArray("69999.txt 5 5 69999"));

        // And back, from our archive and from one that zip itself made.
        const QString out = m_dir.filePath("many-out");
        runWithinMemory({"unpack", archive, out}, ManyFilesPeakKiB);
        QCOMPARE(QDir(out).count(), uint(ManyFiles + 2)); // with . and ..
        QCOMPARE(readFile(out + "/69999.txt"), QByteArray("69999"));
        QVERIFY(QFile::remove(archive) && QDir(out).removeRecursively());
        QCOMPARE(QProcess::execute("zip", {"-q0rj", m_dir.filePath("by-zip.zip"), folder}), 0);
        const QString byZip = m_dir.filePath("by-zip-out");
        runWithinMemory({"unpack", m_dir.filePath("by-zip.zip"), byZip}, ManyFilesPeakKiB);
        QCOMPARE(QDir(byZip).count(), uint(ManyFiles + 2));
    }
};

QTEST_GUILESS_MAIN(TestZrZipLarge)
#include "tst_zrzip_large.moc"
