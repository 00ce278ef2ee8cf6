// The key, the security token and the request signature never reach what a caller
// logs: every way a request can fail, with a post and an administration call, and
// everything said about it (the exception and Qt's messages) searched for them. The
// loopback service quotes signatures back as the real one does; the overrides here
// go further and quote the whole request.
#include "LogTestClient.h"
#include "MessageCapture.h"

#include <QRegularExpression>
#include <QTcpServer>
#include <QTest>

#include <stdexcept>

using namespace cloudlog_sdk_v6;
using ZrLoopback::HttpRequest;
using ZrLoopback::HttpResponse;
using ZrLoopback::LoopbackLogService;

Q_DECLARE_METATYPE(HttpResponse)

namespace
{
const QByteArray KeyId = "STSID0042";
const QByteArray Key = "sts-secret-key-5e1d";
const QByteArray Token = "sts-token-secret-88c2";
} // namespace

class LogSecretsTest : public QObject
{
    Q_OBJECT
    LoopbackLogService m_service {"other-id", "other-key"};

private Q_SLOTS:
    void initTestCase()
    {
        m_service.addAccessKey(KeyId, Key, Token);
        ZrLoopback::MessageCapture::install();
    }

    void secretInFailure_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("token");
        QTest::addColumn<QString>("how");
        QTest::addColumn<QByteArray>("expectedCode");
        QTest::addColumn<QByteArray>("messageKeeps"); // what is left of the message around the secrets
        const QByteArray quotedAuthorization = "LOG " + KeyId + ":***";
        // The service's own refusals, which quote the signature.
        QTest::newRow("signature refused")
            << "wrong-" + Key << Token << "serve" << QByteArray("SignatureNotMatch")
            << QByteArray("signature *** not match");
        QTest::newRow("token refused") << Key << "wrong-" + Token << "serve" << QByteArray("Unauthorized")
                                       << QByteArray("security token does not match");
        // Answers that quote the whole request, headers and all.
        QTest::newRow("JSON error quoting the request")
            << Key << Token << "json" << QByteArray("QuotedRequest") << quotedAuthorization;
        QTest::newRow("500 page quoting the request")
            << Key << Token << "500" << QByteArray("InternalServerError")
            << QByteArray("x-acs-security-token:***");
        QTest::newRow("502 page quoting the request")
            << Key << Token << "502" << QByteArray("BadResponse") << quotedAuthorization;
        QTest::newRow("code quoting the key")
            << Key << Token << "code" << QByteArray("Key***Refused") << QByteArray("no");
        // No answer at all, and a transport that quotes the key in its own failure.
        QTest::newRow("connection refused")
            << Key << Token << "refused" << QByteArray("ClientNetworkError") << QByteArray("Can not connect");
        QTest::newRow("time-out") << Key << Token << "silent" << QByteArray("RequestTimeout")
                                  << QByteArray("timeout");
        QTest::newRow("transport quoting the key") << Key << Token << "throw" << QByteArray("UnknownError")
                                                   << QByteArray("proxy refused credentials ***");
    }
    void secretInFailure()
    {
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, token);
        QFETCH(QString, how);
        QFETCH(QByteArray, expectedCode);
        QFETCH(QByteArray, messageKeeps);

        m_service.http().clearRequests();
        m_service.setOverride([how, key](const HttpRequest& request) -> std::optional<HttpResponse> {
            const QByteArray quoted = request.rawHead;
            if (how == "json")
                return HttpResponse(400,
                    "{\"errorCode\":\"QuotedRequest\",\"errorMessage\":\""
                        + QByteArray(quoted).replace('"', "\\\"").replace("\r\n", "\\n") + "\"}");
            if (how == "500" || how == "502")
                return HttpResponse(how.toInt(), "<html><pre>" + quoted + "</pre></html>");
            if (how == "code")
                return HttpResponse(403, "{\"errorCode\":\"Key" + key + "Refused\",\"errorMessage\":\"no\"}");
            if (how == "silent") {
                HttpResponse response;
                response.fault = HttpResponse::Fault::NeverAnswer;
                return response;
            }
            return std::nullopt;
        });

        std::string endpoint = stdBytes(m_service.endpoint());
        QTcpServer closed;
        if (how == "refused") {
            QVERIFY(closed.listen(QHostAddress::LocalHost));
            endpoint = "127.0.0.1:" + std::to_string(closed.serverPort());
            closed.close();
        }
        LogTestClient client(endpoint, stdBytes(KeyId), stdBytes(key), stdBytes(token), 1, "src", false);
        if (how == "throw") {
            client.setTransport([key](auto&&...) -> void {
                throw std::runtime_error("proxy refused credentials " + stdBytes(key));
            });
        }

        ZrLoopback::MessageCapture::clear();
        QByteArray said;
        for (int call = 0; call < 2; ++call) {
            try {
                if (call == 0)
                    client.PostLogStoreLogs("p", "s", "topic", {LogItem {}}, "");
                else
                    client.ListLogStores("p");
                QFAIL("the request did not fail");
            } catch (const LOGException& e) {
                QCOMPARE(qBytes(e.GetErrorCode()), expectedCode);
                QVERIFY2(qBytes(e.GetErrorMessage()).contains(messageKeeps), e.GetErrorMessage().c_str());
                said
                    += qBytes(e.GetErrorCode()) + '\n' + qBytes(e.GetErrorMessage()) + '\n' + e.what() + '\n';
            }
        }
        said += ZrLoopback::MessageCapture::messages().join('\n').toUtf8();
        m_service.setOverride({});

        QList<QByteArray> secrets {key, token};
        for (const HttpRequest& request : m_service.http().requests()) {
            const QByteArray authorization = request.header("Authorization");
            secrets.append(authorization.mid(authorization.indexOf(':') + 1));
        }
        for (const QByteArray& secret : secrets)
            QVERIFY2(secret.isEmpty() || !said.contains(secret), said.constData());
    }
};

QTEST_GUILESS_MAIN(LogSecretsTest)
#include "tst_logsecrets.moc"
