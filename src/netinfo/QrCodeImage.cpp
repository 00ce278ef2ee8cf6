#include <ZrUtils/ZrNetwork.h>

#include <QPainter>
#include <QtDebug>

#include <qrencode.h>

#include <cerrno>
#include <memory>

namespace ZrUtils
{

namespace
{

struct QrCodeFree {
    void operator()(QRcode* code) const { QRcode_free(code); } // frees the modules too
};

} // namespace

QImage ZrNetwork::GenerateQRCode(const QString& text, const QSize& size, int margin)
{
    if (text.isEmpty())
        return QImage();

    const QByteArray utf8 = text.toUtf8();
    errno = 0;
    // Version 2 is the smallest symbol we draw; libqrencode grows it as the data needs.
    const std::unique_ptr<QRcode, QrCodeFree> code(
        QRcode_encodeString(utf8.constData(), 2, QR_ECLEVEL_Q, QR_MODE_8, 1));
    if (!code) {
        qInfo("ZrNetwork: QR encoding failed, errno %d", errno);
        return QImage();
    }

    const int modules = code->width;
    const int n = qMax(1, modules);
    const int side = qMin(size.width(), size.height());
    QImage image(side, side, QImage::Format_ARGB32);
    if (image.isNull())
        return image; // a side of zero or less: nothing to draw on

    QPainter painter(&image);
    painter.setPen(Qt::NoPen);
    painter.fillRect(QRect(0, 0, side, side), Qt::white);
    // Modules may be fractional pixels wide; the margin is not checked against the side.
    const double scale = double(side - 2 * margin) / n;
    const unsigned char* data = code->data;
    for (int y = 0; y < modules; ++y) {
        for (int x = 0; x < modules; ++x) {
            if (data[y * modules + x] & 1) // bit 0 marks a dark module
                painter.fillRect(QRectF(margin + x * scale, margin + y * scale, scale, scale), Qt::black);
        }
    }
    painter.end();
    return image;
}

} // namespace ZrUtils
