#ifndef ZRUTILS_CURLMULTI_H
#define ZRUTILS_CURLMULTI_H

#include <ZrUtils/zrutils_export.h>

#include <QList>
#include <QObject>
#include <QPair>
#include <QSet>

#include <curl/curl.h>

class CurlEasy;
class QSocketNotifier;
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
 *
 * Scale: with a notifier per socket, Qt's event dispatcher handles every socket
 * itself, and with the GLib dispatcher (Qt's default on Linux) the cost of each
 * event and of each new or closed socket grows with the number of open sockets.
 * An application that keeps thousands of transfers open can switch a multi to
 * SocketWatching::EventSet before its first transfer.
 */
class ZRUTILS_EXPORT CurlMulti : public QObject
{
    Q_OBJECT
public:
    /** How the multi watches libcurl's sockets. */
    enum class SocketWatching {
        /** A QSocketNotifier per socket and direction, enabled while libcurl waits on it (the default). */
        NotifierPerSocket,
        /**
         * One kernel event set (epoll) holding every socket, behind a single
         * QSocketNotifier: an event costs the same with ten transfers open or ten
         * thousand. Linux only.
         */
        EventSet,
    };

    /** The calling thread's multi, created on first use and destroyed when the thread ends. Never null. */
    static CurlMulti* threadInstance();

    explicit CurlMulti(QObject* parent = nullptr);
    ~CurlMulti() override;

    /** The libcurl multi handle; null only when libcurl could not create one. */
    CURLM* handle() const { return m_handle; }
    /** The transfers currently added. */
    QSet<CurlEasy*> transfers() const { return m_transfers; }

    /**
     * Switches how sockets are watched. Only while the multi watches no socket (before
     * the first transfer, or once every connection is closed): returns false, changing
     * nothing, when it does, or when @p mode is not available on this system.
     */
    bool setSocketWatching(SocketWatching mode);
    SocketWatching socketWatching() const
    {
        return m_eventSet >= 0 ? SocketWatching::EventSet : SocketWatching::NotifierPerSocket;
    }

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
    void eventSetReady();
    void watchInEventSet(int socket, int what, CurlMultiSocket* socketRecord);
    void curlSocketFunction(CURL* easy, int socket, int what, CurlMultiSocket* socketRecord);
    void curlTimerFunction(int timeoutMs);
    void notifierAction(int socket, int eventsBitmask);
    // Returns whether a transfer may have finished; false when libcurl was not called.
    bool runSocketAction(int socket, int eventsBitmask);
    void deliverFinished();
    void applyDeferredChanges();

    QTimer* m_timer = nullptr;
    CURLM* m_handle = nullptr;
    QSet<CurlEasy*> m_transfers;
    // libcurl refuses to add or remove handles from inside its own callbacks (a
    // slot that aborts on progress, say); such changes wait until it returns.
    bool m_insideCurl = false;
    int m_running = 0; // libcurl's count of running transfers, plus those added since
    bool m_deliveryQueued = false; // finished transfers to announce on the next pass
    QList<QPair<CURL*, bool>> m_deferred; // handle, true to add
    int m_watchedSockets = 0; // socket records libcurl holds
    int m_eventSet = -1; // the epoll descriptor in EventSet mode
    QSocketNotifier* m_eventSetNotifier = nullptr;
};

#endif
