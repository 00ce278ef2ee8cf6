#ifndef ZRUTILS_CURLEASY_H
#define ZRUTILS_CURLEASY_H

#include <ZrUtils/zrutils_export.h>

#include <QByteArray>
#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QString>

// CURLoption and CURLcode are plain enums of libcurl and cannot be forward-declared.
#include <curl/curl.h>

#include <functional>
#include <memory>

class CurlMulti;
class QUrl;

/**
 * One libcurl transfer as a QObject, driven by the Qt event loop of the thread
 * that calls perform().
 *
 * Set options with set() or, for numeric options, with curl_easy_setopt() on
 * handle(); install data callbacks with the set*Function() setters; then call
 * perform() and wait for done() (or aborted()). The transfer makes progress only
 * while its thread runs an event loop. Options, callbacks and headers persist, so
 * a finished transfer may be performed again.
 *
 * TLS: the class leaves libcurl's certificate checks as they are (libcurl's own
 * defaults, or what the caller set) unless CertificateChecking is on. Every
 * perform() reads that switch: when it is on, perform() sets CURLOPT_SSL_VERIFYPEER
 * to 1, CURLOPT_SSL_VERIFYHOST to 2 and CURLOPT_CAINFO to the CA bundle (with no
 * CURLOPT_CAPATH, so the bundle alone is trusted) or, without a bundle, to
 * libcurl's built-in CA store, overriding what the caller set for these options.
 * A perform() with the switch off after one with it on puts these options back to
 * libcurl's defaults. Options are not touched at construction, so a transfer made
 * before the application turns checking on is checked all the same.
 *
 * A running transfer must be performed, aborted and destroyed in its own thread;
 * delete it with deleteLater() (this class's slot) when it may be running, never
 * from inside one of its own callbacks. progress() and the data callbacks run
 * inside libcurl: abort() and perform() are fine there, a nested event loop is not.
 */
class ZRUTILS_EXPORT CurlEasy : public QObject
{
    Q_OBJECT
public:
    /// Offered bytes in, bytes taken out; fewer than offered fails the transfer.
    using DataFunction = std::function<size_t(char* data, size_t size)>;
    /// Returns CURL_SEEKFUNC_OK, CURL_SEEKFUNC_FAIL or CURL_SEEKFUNC_CANTSEEK.
    using SeekFunction = std::function<int(qint64 offset, int origin)>;

    explicit CurlEasy(QObject* parent = nullptr);
    ~CurlEasy() override;

    /** The libcurl easy handle; null only when libcurl could not create one. */
    CURL* handle() const { return m_handle.get(); }

    /** True from perform() until completion, abort() or removeFromMulti(). */
    bool isRunning() const { return m_runningOnMulti != nullptr; }
    /** The multi the transfer is registered with; null when idle. */
    CurlMulti* runningOnMulti() const { return m_runningOnMulti; }
    /** Result of the last completed transfer; CURLE_OK before the first one. */
    CURLcode lastResult() const { return m_lastResult; }

    /** The multi perform() uses instead of the thread's own; null (the default) for the thread's. */
    CurlMulti* preferredMulti() const { return m_preferredMulti; }
    void setPreferredMulti(CurlMulti* multi) { m_preferredMulti = multi; }

    /**
     * Sets a string option to the UTF-8 bytes of @p value. libcurl copies string
     * options, except CURLOPT_POSTFIELDS, which must not be set this way.
     * Returns false when libcurl refuses the option.
     */
    bool set(CURLoption option, const QString& value);
    /** Sets a string option to the fully encoded @p value. Returns false when libcurl refuses it. */
    bool set(CURLoption option, const QUrl& value);

    /** Stores @p value percent-encoded for the next perform(); replaces an earlier value. */
    void setHttpHeader(const QString& name, const QString& value);
    /** The decoded value set for @p name; an empty string when there is none. */
    QString httpHeader(const QString& name) const;
    /** Stores @p value as it is, for headers that must go out unencoded. */
    void setHttpHeaderRaw(const QString& name, const QByteArray& value);
    /** The bytes stored for @p name; empty when there are none. */
    QByteArray httpHeaderRaw(const QString& name) const;
    bool hasHttpHeader(const QString& name) const;
    /** Returns the number of headers removed (0 or 1). */
    int removeHttpHeader(const QString& name);

    /** Supplies upload data; an empty function restores libcurl's own reading. */
    void setReadFunction(const DataFunction& function);
    /** Receives body data; without one, data is accepted and dropped. */
    void setWriteFunction(const DataFunction& function);
    /** Receives header lines; without one, they are accepted and dropped. */
    void setHeaderFunction(const DataFunction& function);
    /** Rewinds upload data; without one, libcurl is told the stream cannot seek. */
    void setSeekFunction(const SeekFunction& function);

    /**
     * Starts the transfer on the event loop, with the certificate checks
     * CertificateChecking asks for now; does nothing when it is already running.
     */
    void perform();
    /** Stops a running transfer and emits aborted(); does nothing when idle. */
    void abort();
    /** Takes the transfer off its multi without any signal; does nothing when idle. */
    void removeFromMulti();

    /** Called by CurlMulti for each message libcurl reports for this transfer. */
    void onCurlMessage(CURLMsg* message);

    // libcurl's C callbacks; the user data is the CurlEasy.
    static int staticCurlXferInfoFunction(
        void* clientp, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal, curl_off_t ulnow);
    static size_t staticCurlReadFunction(char* data, size_t size, size_t nitems, void* userdata);
    static size_t staticCurlWriteFunction(char* data, size_t size, size_t nitems, void* userdata);
    static size_t staticCurlHeaderFunction(char* data, size_t size, size_t nitems, void* userdata);
    static int staticCurlSeekFunction(void* userdata, curl_off_t offset, int origin);

public Q_SLOTS:
    /** Takes a running transfer off its multi, then schedules deletion. Use this one, not QObject's. */
    void deleteLater();

Q_SIGNALS:
    void aborted();
    void progress(qint64 downloadTotal, qint64 downloadNow, qint64 uploadTotal, qint64 uploadNow);
    /** The transfer finished and is already idle: a slot may perform() again or delete it. */
    void done(CURLcode result);

private:
    void rebuildCurlHttpHeaders();
    void applyCertificateChecking();

    struct EasyCleanup {
        void operator()(CURL* handle) const;
    };
    struct SlistFree {
        void operator()(curl_slist* list) const;
    };

    std::unique_ptr<CURL, EasyCleanup> m_handle;
    CurlMulti* m_preferredMulti = nullptr;
    CurlMulti* m_runningOnMulti = nullptr;
    CURLcode m_lastResult = CURLE_OK;
    DataFunction m_readFunction;
    DataFunction m_writeFunction;
    DataFunction m_headerFunction;
    SeekFunction m_seekFunction;
    bool m_httpHeadersWereSet = false;
    QMap<QString, QByteArray> m_httpHeaders;
    std::unique_ptr<curl_slist, SlistFree> m_curlHttpHeaders;
    // The last perform() set the certificate options for CertificateChecking.
    bool m_certificateCheckingApplied = false;
};

Q_DECLARE_METATYPE(CURLcode)

#endif
