// Every Qt message of the process, kept for tests that search what was said, and
// then handed on to the handler that was there before (QtTest's).
#ifndef ZRLOOPBACK_MESSAGECAPTURE_H
#define ZRLOOPBACK_MESSAGECAPTURE_H

#include <QMutex>
#include <QStringList>

namespace ZrLoopback
{

class MessageCapture
{
public:
    // Installs the capturing handler; call once, from initTestCase().
    static void install()
    {
        previous() = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext& context, const QString& text) {
                {
                    QMutexLocker lock(&mutex());
                    kept().append(text);
                }
                previous()(type, context, text);
            });
    }
    static QStringList messages()
    {
        QMutexLocker lock(&mutex());
        return kept();
    }
    static void clear()
    {
        QMutexLocker lock(&mutex());
        kept().clear();
    }

private:
    static QtMessageHandler& previous()
    {
        static QtMessageHandler handler = nullptr;
        return handler;
    }
    static QStringList& kept()
    {
        static QStringList list;
        return list;
    }
    static QMutex& mutex()
    {
        static QMutex m;
        return m;
    }
};

} // namespace ZrLoopback

#endif
