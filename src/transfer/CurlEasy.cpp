#include <ZrUtils/CurlEasy.h>
#include <ZrUtils/CurlMulti.h>

#include "common/CertificatePolicy.h"

#include <QFile>
#include <QUrl>

namespace
{

// libcurl's built-in CA file and folder (each may be null), to go back to when a
// transfer no longer uses a bundle.
struct BuiltinCaStore {
    const char* file = nullptr;
    const char* folder = nullptr;
};

BuiltinCaStore builtinCaStore()
{
#if LIBCURL_VERSION_NUM >= 0x074600
    const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
    if (info->age >= CURLVERSION_SEVENTH)
        return {info->cainfo, info->capath};
#endif
    return {};
}

} // namespace

void CurlEasy::EasyCleanup::operator()(CURL* handle) const
{
    curl_easy_cleanup(handle);
}

void CurlEasy::SlistFree::operator()(curl_slist* list) const
{
    curl_slist_free_all(list);
}

CurlEasy::CurlEasy(QObject* parent)
    : QObject(parent)
    , m_handle(curl_easy_init())
{
    // done(CURLcode) crosses queued connections and signal spies.
    qRegisterMetaType<CURLcode>("CURLcode");
    CURL* curl = m_handle.get();
    if (!curl)
        return;
    curl_easy_setopt(curl, CURLOPT_PRIVATE, this);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &CurlEasy::staticCurlXferInfoFunction);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
}

CurlEasy::~CurlEasy()
{
    removeFromMulti();
    // The handle goes before the header list it may still point at.
    m_handle.reset();
    m_curlHttpHeaders.reset();
}

bool CurlEasy::set(CURLoption option, const QString& value)
{
    if (!m_handle)
        return false;
    return curl_easy_setopt(m_handle.get(), option, value.toUtf8().constData()) == CURLE_OK;
}

bool CurlEasy::set(CURLoption option, const QUrl& value)
{
    if (!m_handle)
        return false;
    return curl_easy_setopt(m_handle.get(), option, value.toEncoded(QUrl::FullyEncoded).constData())
        == CURLE_OK;
}

void CurlEasy::setHttpHeader(const QString& name, const QString& value)
{
    m_httpHeaders.insert(name, QUrl::toPercentEncoding(value));
    m_httpHeadersWereSet = true;
}

QString CurlEasy::httpHeader(const QString& name) const
{
    const auto it = m_httpHeaders.constFind(name);
    return it == m_httpHeaders.constEnd() ? QString() : QUrl::fromPercentEncoding(*it);
}

void CurlEasy::setHttpHeaderRaw(const QString& name, const QByteArray& value)
{
    m_httpHeaders.insert(name, value);
    m_httpHeadersWereSet = true;
}

QByteArray CurlEasy::httpHeaderRaw(const QString& name) const
{
    return m_httpHeaders.value(name);
}

bool CurlEasy::hasHttpHeader(const QString& name) const
{
    return m_httpHeaders.contains(name);
}

int CurlEasy::removeHttpHeader(const QString& name)
{
    m_httpHeadersWereSet = true;
    return m_httpHeaders.remove(name);
}

void CurlEasy::setReadFunction(const DataFunction& function)
{
    m_readFunction = function;
    if (!m_handle)
        return;
    const bool on = bool(m_readFunction);
    curl_easy_setopt(m_handle.get(), CURLOPT_READFUNCTION, on ? &CurlEasy::staticCurlReadFunction : nullptr);
    curl_easy_setopt(m_handle.get(), CURLOPT_READDATA, on ? this : nullptr);
}

void CurlEasy::setWriteFunction(const DataFunction& function)
{
    m_writeFunction = function;
    if (!m_handle)
        return;
    const bool on = bool(m_writeFunction);
    curl_easy_setopt(
        m_handle.get(), CURLOPT_WRITEFUNCTION, on ? &CurlEasy::staticCurlWriteFunction : nullptr);
    curl_easy_setopt(m_handle.get(), CURLOPT_WRITEDATA, on ? this : nullptr);
}

void CurlEasy::setHeaderFunction(const DataFunction& function)
{
    m_headerFunction = function;
    if (!m_handle)
        return;
    const bool on = bool(m_headerFunction);
    curl_easy_setopt(
        m_handle.get(), CURLOPT_HEADERFUNCTION, on ? &CurlEasy::staticCurlHeaderFunction : nullptr);
    curl_easy_setopt(m_handle.get(), CURLOPT_HEADERDATA, on ? this : nullptr);
}

void CurlEasy::setSeekFunction(const SeekFunction& function)
{
    m_seekFunction = function;
    if (!m_handle)
        return;
    const bool on = bool(m_seekFunction);
    curl_easy_setopt(m_handle.get(), CURLOPT_SEEKFUNCTION, on ? &CurlEasy::staticCurlSeekFunction : nullptr);
    curl_easy_setopt(m_handle.get(), CURLOPT_SEEKDATA, on ? this : nullptr);
}

void CurlEasy::perform()
{
    if (isRunning() || !m_handle)
        return;
    rebuildCurlHttpHeaders();
    applyCertificateChecking();
    m_runningOnMulti = m_preferredMulti ? m_preferredMulti : CurlMulti::threadInstance();
    m_runningOnMulti->addTransfer(this);
}

void CurlEasy::abort()
{
    if (!isRunning())
        return;
    removeFromMulti();
    emit aborted();
}

void CurlEasy::removeFromMulti()
{
    if (!m_runningOnMulti)
        return;
    CurlMulti* multi = m_runningOnMulti;
    m_runningOnMulti = nullptr;
    multi->removeTransfer(this);
}

void CurlEasy::deleteLater()
{
    removeFromMulti();
    QObject::deleteLater();
}

void CurlEasy::onCurlMessage(CURLMsg* message)
{
    if (message->msg != CURLMSG_DONE)
        return;
    const CURLcode result = message->data.result;
    removeFromMulti();
    m_lastResult = result;
    emit done(result);
}

void CurlEasy::rebuildCurlHttpHeaders()
{
    // The flag stays set: once headers were touched, every perform() rebuilds.
    if (!m_httpHeadersWereSet)
        return;
    m_curlHttpHeaders.reset();
    curl_slist* list = nullptr;
    for (auto it = m_httpHeaders.constBegin(); it != m_httpHeaders.constEnd(); ++it) {
        const QByteArray line = it.key().toUtf8() + ": " + it.value();
        curl_slist* longer = curl_slist_append(list, line.constData());
        if (!longer)
            break; // out of memory: send the headers appended so far
        list = longer;
    }
    m_curlHttpHeaders.reset(list);
    curl_easy_setopt(m_handle.get(), CURLOPT_HTTPHEADER, list);
}

void CurlEasy::applyCertificateChecking()
{
    const ZrUtils::Internal::CertificatePolicy policy = ZrUtils::Internal::certificatePolicy();
    if (!policy.enabled && !m_certificateCheckingApplied)
        return; // as the caller left them
    CURL* curl = m_handle.get();
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    if (policy.enabled && !policy.caBundle.isEmpty()) {
        curl_easy_setopt(curl, CURLOPT_CAINFO, QFile::encodeName(policy.caBundle).constData());
        curl_easy_setopt(curl, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    } else {
        const BuiltinCaStore builtin = builtinCaStore();
        curl_easy_setopt(curl, CURLOPT_CAINFO, builtin.file);
        curl_easy_setopt(curl, CURLOPT_CAPATH, builtin.folder);
    }
    m_certificateCheckingApplied = policy.enabled;
}

int CurlEasy::staticCurlXferInfoFunction(
    void* clientp, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal, curl_off_t ulnow)
{
    emit static_cast<CurlEasy*>(clientp)->progress(dltotal, dlnow, ultotal, ulnow);
    return 0; // progress never cancels a transfer
}

size_t CurlEasy::staticCurlReadFunction(char* data, size_t size, size_t nitems, void* userdata)
{
    auto* easy = static_cast<CurlEasy*>(userdata);
    return easy->m_readFunction ? easy->m_readFunction(data, size * nitems) : size * nitems;
}

size_t CurlEasy::staticCurlWriteFunction(char* data, size_t size, size_t nitems, void* userdata)
{
    auto* easy = static_cast<CurlEasy*>(userdata);
    return easy->m_writeFunction ? easy->m_writeFunction(data, size * nitems) : size * nitems;
}

size_t CurlEasy::staticCurlHeaderFunction(char* data, size_t size, size_t nitems, void* userdata)
{
    auto* easy = static_cast<CurlEasy*>(userdata);
    return easy->m_headerFunction ? easy->m_headerFunction(data, size * nitems) : size * nitems;
}

int CurlEasy::staticCurlSeekFunction(void* userdata, curl_off_t offset, int origin)
{
    auto* easy = static_cast<CurlEasy*>(userdata);
    return easy->m_seekFunction ? easy->m_seekFunction(offset, origin) : CURL_SEEKFUNC_CANTSEEK;
}
