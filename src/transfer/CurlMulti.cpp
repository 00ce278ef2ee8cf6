#include <ZrUtils/CurlEasy.h>
#include <ZrUtils/CurlMulti.h>

#include <QSocketNotifier>
#include <QThreadStorage>
#include <QTimer>

#include <climits>
#include <iterator>
#include <memory>
#include <utility>

#ifdef __linux__
#include <sys/epoll.h>
#include <unistd.h>
#endif

// What libcurl keeps for each socket it asked us to watch.
struct CurlMultiSocket {
    int socketDescriptor = -1;
    QSocketNotifier* readNotifier = nullptr;
    QSocketNotifier* writeNotifier = nullptr;
    QSocketNotifier* errorNotifier = nullptr; // never created, deleted with the record all the same
    bool inEventSet = false; // EventSet mode: added to the epoll set
};

CurlMulti* CurlMulti::threadInstance()
{
    // Destroyed with its thread, so each thread drives its own transfers.
    static QThreadStorage<std::shared_ptr<CurlMulti>> instances;
    if (instances.hasLocalData())
        return instances.localData().get();
    instances.setLocalData(std::make_shared<CurlMulti>());
    return instances.localData().get();
}

CurlMulti::CurlMulti(QObject* parent)
    : QObject(parent)
    , m_timer(new QTimer(this))
    , m_handle(curl_multi_init())
{
    m_timer->setSingleShot(true);
    if (m_handle) {
        curl_multi_setopt(m_handle, CURLMOPT_SOCKETFUNCTION, &CurlMulti::staticCurlSocketFunction);
        curl_multi_setopt(m_handle, CURLMOPT_SOCKETDATA, this);
        curl_multi_setopt(m_handle, CURLMOPT_TIMERFUNCTION, &CurlMulti::staticCurlTimerFunction);
        curl_multi_setopt(m_handle, CURLMOPT_TIMERDATA, this);
    }
    connect(m_timer, &QTimer::timeout, this, &CurlMulti::curlMultiTimeout);
}

CurlMulti::~CurlMulti()
{
    while (!m_transfers.isEmpty()) {
        CurlEasy* transfer = *m_transfers.cbegin();
        if (transfer->runningOnMulti() == this)
            transfer->abort();
        removeTransfer(transfer); // added by hand rather than by perform()
    }
    if (m_handle)
        curl_multi_cleanup(m_handle); // may still report sockets removed
#ifdef __linux__
    if (m_eventSet >= 0) {
        delete m_eventSetNotifier;
        ::close(m_eventSet);
    }
#endif
}

bool CurlMulti::setSocketWatching(SocketWatching mode)
{
    if (mode == socketWatching())
        return true;
    if (m_watchedSockets > 0)
        return false;
#ifdef __linux__
    if (mode == SocketWatching::EventSet) {
        const int eventSet = ::epoll_create1(EPOLL_CLOEXEC);
        if (eventSet < 0)
            return false;
        m_eventSet = eventSet;
        m_eventSetNotifier = new QSocketNotifier(eventSet, QSocketNotifier::Read, this);
        connect(m_eventSetNotifier, &QSocketNotifier::activated, this, &CurlMulti::eventSetReady);
    } else {
        delete std::exchange(m_eventSetNotifier, nullptr);
        ::close(std::exchange(m_eventSet, -1));
    }
    return true;
#else
    return false;
#endif
}

void CurlMulti::addTransfer(CurlEasy* transfer)
{
    if (!transfer || m_transfers.contains(transfer))
        return;
    m_transfers.insert(transfer);
    if (m_insideCurl)
        m_deferred.append({transfer->handle(), true});
    else if (m_handle && curl_multi_add_handle(m_handle, transfer->handle()) == CURLM_OK)
        ++m_running;
}

void CurlMulti::removeTransfer(CurlEasy* transfer)
{
    if (!m_transfers.remove(transfer))
        return;
    if (m_insideCurl)
        m_deferred.append({transfer->handle(), false});
    else if (m_handle)
        curl_multi_remove_handle(m_handle, transfer->handle());
}

void CurlMulti::applyDeferredChanges()
{
    const QList<QPair<CURL*, bool>> changes = std::exchange(m_deferred, {});
    for (const auto& change : changes) {
        if (change.second)
            m_running += curl_multi_add_handle(m_handle, change.first) == CURLM_OK;
        else
            curl_multi_remove_handle(m_handle, change.first);
    }
}

int CurlMulti::staticCurlSocketFunction(
    CURL* easy, curl_socket_t socket, int what, void* userp, void* socketp)
{
    static_cast<CurlMulti*>(userp)->curlSocketFunction(
        easy, int(socket), what, static_cast<CurlMultiSocket*>(socketp));
    return 0;
}

int CurlMulti::staticCurlTimerFunction(CURLM*, long timeoutMs, void* userp)
{
    static_cast<CurlMulti*>(userp)->curlTimerFunction(int(qMin<long>(timeoutMs, INT_MAX)));
    return 0;
}

void CurlMulti::curlSocketFunction(CURL*, int socket, int what, CurlMultiSocket* socketRecord)
{
    if (!socketRecord) {
        if (what == CURL_POLL_NONE || what == CURL_POLL_REMOVE)
            return;
        socketRecord = new CurlMultiSocket;
        socketRecord->socketDescriptor = socket;
        curl_multi_assign(m_handle, socket, socketRecord);
        ++m_watchedSockets;
    }

    if (m_eventSet >= 0) {
        watchInEventSet(socket, what, socketRecord);
        if (what == CURL_POLL_REMOVE) {
            curl_multi_assign(m_handle, socket, nullptr);
            delete socketRecord;
            --m_watchedSockets;
        }
        return;
    }

    if (what == CURL_POLL_REMOVE) {
        --m_watchedSockets;
        curl_multi_assign(m_handle, socket, nullptr);
        // A notifier may be the one whose activation got us here; Qt allows deleting it.
        delete socketRecord->readNotifier;
        delete socketRecord->writeNotifier;
        delete socketRecord->errorNotifier;
        delete socketRecord;
        return;
    }

    const bool wantRead = what == CURL_POLL_IN || what == CURL_POLL_INOUT;
    if (wantRead && !socketRecord->readNotifier) {
        socketRecord->readNotifier = new QSocketNotifier(socket, QSocketNotifier::Read);
        connect(socketRecord->readNotifier, &QSocketNotifier::activated, this,
            [this, socket] { socketReadyRead(socket); });
    }
    if (socketRecord->readNotifier)
        socketRecord->readNotifier->setEnabled(wantRead);

    const bool wantWrite = what == CURL_POLL_OUT || what == CURL_POLL_INOUT;
    if (!wantWrite && !socketRecord->writeNotifier)
        return;
    if (wantWrite && !socketRecord->writeNotifier) {
        socketRecord->writeNotifier = new QSocketNotifier(socket, QSocketNotifier::Write);
        connect(socketRecord->writeNotifier, &QSocketNotifier::activated, this,
            [this, socket] { socketReadyWrite(socket); });
    }
    socketRecord->writeNotifier->setEnabled(wantWrite);
}

void CurlMulti::watchInEventSet(int socket, int what, CurlMultiSocket* socketRecord)
{
#ifdef __linux__
    // A socket libcurl wants nothing from leaves the set: epoll would still report
    // its hang-up, over and over, while nobody reads it.
    if (what == CURL_POLL_NONE || what == CURL_POLL_REMOVE) {
        if (socketRecord->inEventSet)
            ::epoll_ctl(m_eventSet, EPOLL_CTL_DEL, socket, nullptr);
        socketRecord->inEventSet = false;
        return;
    }
    epoll_event event {};
    event.events = (what == CURL_POLL_IN || what == CURL_POLL_INOUT ? EPOLLIN : 0u)
        | (what == CURL_POLL_OUT || what == CURL_POLL_INOUT ? EPOLLOUT : 0u);
    event.data.fd = socket;
    if (::epoll_ctl(m_eventSet, socketRecord->inEventSet ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event)
        == 0)
        socketRecord->inEventSet = true;
#else
    Q_UNUSED(socket)
    Q_UNUSED(what)
    Q_UNUSED(socketRecord)
#endif
}

void CurlMulti::eventSetReady()
{
#ifdef __linux__
    // What is ready now, at most a batch at a time: the notifier fires again while
    // more is. An event may name a socket that an earlier action of this batch closed;
    // libcurl ignores actions on sockets it no longer knows. Finished transfers are
    // announced after the whole batch, so that transfers started from their slots send
    // their requests together, not one per following action.
    epoll_event events[256];
    const int count = ::epoll_wait(m_eventSet, events, int(std::size(events)), 0);
    for (int i = 0; i < count; ++i) {
        const uint32_t ready = events[i].events;
        const int mask = (ready & (EPOLLIN | EPOLLHUP) ? CURL_CSELECT_IN : 0)
            | (ready & EPOLLOUT ? CURL_CSELECT_OUT : 0) | (ready & EPOLLERR ? CURL_CSELECT_ERR : 0);
        runSocketAction(events[i].data.fd, mask);
    }
    deliverFinished();
#endif
}

void CurlMulti::curlTimerFunction(int timeoutMs)
{
    if (timeoutMs < 0)
        m_timer->stop();
    else
        m_timer->start(timeoutMs);
}

void CurlMulti::curlMultiTimeout()
{
    runSocketAction(CURL_SOCKET_TIMEOUT, 0);
    deliverFinished();
}

void CurlMulti::socketReadyRead(int socketDescriptor)
{
    notifierAction(socketDescriptor, CURL_CSELECT_IN);
}

void CurlMulti::socketReadyWrite(int socketDescriptor)
{
    notifierAction(socketDescriptor, CURL_CSELECT_OUT);
}

void CurlMulti::socketException(int socketDescriptor)
{
    notifierAction(socketDescriptor, CURL_CSELECT_ERR);
}

void CurlMulti::notifierAction(int socket, int eventsBitmask)
{
    // Finished transfers are announced once every notifier of this pass of the event
    // loop has been served, as with the event set: a transfer started from a finished
    // one's slot then sends its request together with the others, rather than libcurl
    // sending each on the next socket's action, one wake-up of the server apiece.
    if (!runSocketAction(socket, eventsBitmask) || m_deliveryQueued)
        return;
    m_deliveryQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_deliveryQueued = false;
            deliverFinished();
        },
        Qt::QueuedConnection);
}

bool CurlMulti::runSocketAction(int socket, int eventsBitmask)
{
    if (!m_handle || m_insideCurl)
        return false;
    int running = 0;
    m_insideCurl = true;
    curl_multi_socket_action(m_handle, socket, eventsBitmask, &running);
    m_insideCurl = false;
    // m_running never falls below libcurl's own count between actions (a transfer
    // taken away while running is not subtracted), so a finished transfer always shows
    // as a drop; a false alarm only costs a look at an empty message queue.
    const bool maybeFinished = running < m_running;
    m_running = running;
    applyDeferredChanges();
    return maybeFinished;
}

void CurlMulti::deliverFinished()
{
    if (!m_handle || m_insideCurl)
        return;
    int messagesLeft = 0;
    do {
        CURLMsg* message = curl_multi_info_read(m_handle, &messagesLeft);
        if (!message)
            break;
        if (!message->easy_handle)
            continue;
        char* priv = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &priv);
        if (priv)
            reinterpret_cast<CurlEasy*>(priv)->onCurlMessage(message);
    } while (messagesLeft);
}
