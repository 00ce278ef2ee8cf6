#ifndef ZRUTILS_CURLMULTI_H
#define ZRUTILS_CURLMULTI_H

#include <ZrUtils/zrutils_export.h>

#include <QList>
#include <QObject>
#include <QPair>
#include <QSet>

#include <curl/curl.h>

class CurlEasy;
class QTimer;
struct CurlMultiSocket;

/**
 * One libcurl multi handle driven by the Qt event loop of its thread: a socket
 * notifier per socket and direction, and one single-shot timer for libcurl's
 * time-outs. No thread of its own.
 *
 * Each thread gets its own multi through threadInstance(); CurlEasy::perform()
 * uses it. A multi belongs to the thread that created it; destroying it aborts the
 * transfers still on it (each emits aborted()).
 */
class ZRUTILS_EXPORT CurlMulti : public QObject
{
    Q_OBJECT
public:
    /** The calling thread's multi, created on first use and destroyed when the thread ends. Never null. */
    static CurlMulti* threadInstance();

    explicit CurlMulti(QObject* parent = nullptr);
    ~CurlMulti() override;

    /** The libcurl multi handle; null only when libcurl could not create one. */
    CURLM* handle() const { return m_handle; }
    /** The transfers currently added. */
    QSet<CurlEasy*> transfers() const { return m_transfers; }

    /** Hands @p transfer to libcurl. CurlEasy::perform() calls this. */
    void addTransfer(CurlEasy* transfer);
    /** Takes @p transfer back from libcurl; does nothing when it was not added. */
    void removeTransfer(CurlEasy* transfer);

    // libcurl's C callbacks; the user data is the CurlMulti. Both return 0.
    static int staticCurlSocketFunction(
        CURL* easy, curl_socket_t socket, int what, void* userp, void* socketp);
    static int staticCurlTimerFunction(CURLM* multi, long timeoutMs, void* userp);

private Q_SLOTS:
    void curlMultiTimeout();
    void socketReadyRead(int socketDescriptor);
    void socketReadyWrite(int socketDescriptor);
    void socketException(int socketDescriptor);

private:
    void curlSocketFunction(CURL* easy, int socket, int what, CurlMultiSocket* socketRecord);
    void curlTimerFunction(int timeoutMs);
    void curlSocketAction(int socket, int eventsBitmask);
    void applyDeferredChanges();

    QTimer* m_timer = nullptr;
    CURLM* m_handle = nullptr;
    QSet<CurlEasy*> m_transfers;
    // libcurl refuses to add or remove handles from inside its own callbacks (a
    // slot that aborts on progress, say); such changes wait until it returns.
    bool m_insideCurl = false;
    QList<QPair<CURL*, bool>> m_deferred; // handle, true to add
};

#endif
