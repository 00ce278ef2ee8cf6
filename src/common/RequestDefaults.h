// Qt 6 changed two defaults of its network stack: a reply follows redirects by
// itself, and a request goes out over HTTP/2 when a TLS server offers it. Every
// request of the library keeps the Qt 5 behaviour on both versions: the caller sees
// a redirect as the answer it is, and the request is HTTP/1.1, as the servers and
// the tests expect.
#ifndef ZRUTILS_COMMON_REQUESTDEFAULTS_H
#define ZRUTILS_COMMON_REQUESTDEFAULTS_H

#include <QNetworkRequest>
#include <QUrl>

namespace ZrUtils
{
namespace Internal
{

inline QNetworkRequest networkRequest(const QUrl& url)
{
    QNetworkRequest request(url);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
#endif
    return request;
}

} // namespace Internal
} // namespace ZrUtils

#endif
