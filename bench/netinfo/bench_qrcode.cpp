// QR-code timings at 250 x 250, against the qrencode command line writing the same
// symbol as PNG (target: at least as fast per image).
//   image        GenerateQRCode() alone
//   image+png    GenerateQRCode() and QImage::save() as PNG
//   qrencode     "qrencode -v 2 -l Q -m 0 -s 10 -o file.png text", one process per image
// Usage: bench_qrcode [runs of the command line, default 41]
#include "MedianTime.h"

#include <ZrUtils/ZrNetwork.h>

#include <QCoreApplication>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

using ZrUtils::ZrNetwork;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int cliRuns = argc > 1 ? std::max(1, std::atoi(argv[1])) : 41;
    QTemporaryDir dir;
    // 19 bytes: a version-2 symbol (25 modules), so 10 pixels a module make 250 x 250.
    const QString text = QStringLiteral("https://example.com");
    const QSize size(250, 250);
    const QString ours = dir.filePath(QStringLiteral("ours.png"));
    const QString theirs = dir.filePath(QStringLiteral("qrencode.png"));

    const double image = medianMicroseconds(1001, [&] { ZrNetwork::GenerateQRCode(text, size, 0); });
    const double imagePng
        = medianMicroseconds(201, [&] { ZrNetwork::GenerateQRCode(text, size, 0).save(ours, "PNG"); });
    bool cliOk = true;
    const double cli = medianMicroseconds(cliRuns, [&] {
        QProcess qrencode;
        qrencode.start(QStringLiteral("qrencode"),
            {QStringLiteral("-v"), QStringLiteral("2"), QStringLiteral("-l"), QStringLiteral("Q"),
                QStringLiteral("-m"), QStringLiteral("0"), QStringLiteral("-s"), QStringLiteral("10"),
                QStringLiteral("-o"), theirs, text});
        cliOk = qrencode.waitForFinished(30000) && qrencode.exitCode() == 0 && cliOk;
    });
    if (!cliOk) {
        std::printf("qrencode did not run; install Debian's qrencode\n");
        return 2;
    }

    // Same symbol, same pixels: compare the two PNG files once decoded.
    const QImage a = QImage(ours).convertToFormat(QImage::Format_RGB32);
    const QImage b = QImage(theirs).convertToFormat(QImage::Format_RGB32);
    std::printf("same 250 x 250 pixels as qrencode: %s\n", a == b ? "yes" : "NO");
    std::printf(
        "GenerateQRCode            median %8.1f us  (%.0fx faster than qrencode)\n", image, cli / image);
    std::printf("GenerateQRCode + PNG file median %8.1f us  (%.0fx faster than qrencode)\n", imagePng,
        cli / imagePng);
    std::printf("qrencode command line     median %8.1f us\n", cli);
    return imagePng <= cli && a == b ? 0 : 1;
}
