// Crypto benchmarks, each against OpenSSL in the same run:
//   AES-256-CBC Crypt/Decrypt of 1 MiB   (target: at least 0.5x OpenSSL's throughput)
//   RSA-2048 key generation, median       (target: within 3x of OpenSSL)
// Usage: bench_crypto [aes|rsa|big] ...   (default: aes rsa; "big" times 4096/8192-bit keys)
#include <ZrUtils/QAESEncryption.h>
#include <ZrUtils/QRSAEncryption.h>

#include <QRandomGenerator>

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

using ZrUtils::QAESEncryption;
using ZrUtils::QRSAEncryption;
using Clock = std::chrono::steady_clock;

namespace
{

double seconds(const std::function<void()>& body)
{
    const auto start = Clock::now();
    body();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

QByteArray randomBytes(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(bytes.data()), size / 4);
    return bytes;
}

// OpenSSL AES-256-CBC without padding into a buffer allocated once: the most
// favourable setting for the reference.
class OpenSslCbc
{
public:
    OpenSslCbc(const QByteArray& key, const QByteArray& iv, bool encrypt, int size)
        : m_ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free)
        , m_key(key)
        , m_iv(iv)
        , m_encrypt(encrypt)
        , m_out(static_cast<size_t>(size) + 32)
    {
    }
    void run(const QByteArray& in)
    {
        const auto* k = reinterpret_cast<const unsigned char*>(m_key.constData());
        const auto* v = reinterpret_cast<const unsigned char*>(m_iv.constData());
        EVP_CipherInit_ex(m_ctx.get(), EVP_aes_256_cbc(), nullptr, k, v, m_encrypt ? 1 : 0);
        EVP_CIPHER_CTX_set_padding(m_ctx.get(), 0);
        int len = 0;
        EVP_CipherUpdate(m_ctx.get(), m_out.data(), &len,
            reinterpret_cast<const unsigned char*>(in.constData()), in.size());
        int tail = 0;
        EVP_CipherFinal_ex(m_ctx.get(), m_out.data() + len, &tail);
    }
    const unsigned char* data() const { return m_out.data(); }

private:
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> m_ctx;
    QByteArray m_key;
    QByteArray m_iv;
    bool m_encrypt;
    std::vector<unsigned char> m_out;
};

int benchAes()
{
    const int size = 1 << 20;
    const int reps = 41;
    const QByteArray key = randomBytes(32);
    const QByteArray iv = randomBytes(16);
    const QByteArray plain = randomBytes(size);
    const QByteArray cipher = QAESEncryption::Crypt(
        QAESEncryption::AES_256, QAESEncryption::CBC, plain, key, iv, QAESEncryption::PKCS7);

    OpenSslCbc sslEncrypt(key, iv, true, size + 16);
    OpenSslCbc sslDecrypt(key, iv, false, size + 16);
    // Same bytes as the reference, or the figures mean nothing.
    QByteArray padded = plain + QByteArray(16, '\x10');
    sslEncrypt.run(padded);
    if (std::memcmp(sslEncrypt.data(), cipher.constData(), static_cast<size_t>(cipher.size())) != 0) {
        std::printf("AES output differs from OpenSSL\n");
        return 1;
    }

    std::vector<double> ours[2], theirs[2];
    for (int i = 0; i < reps; ++i) {
        ours[0].push_back(seconds([&] {
            QAESEncryption::Crypt(
                QAESEncryption::AES_256, QAESEncryption::CBC, plain, key, iv, QAESEncryption::PKCS7);
        }));
        theirs[0].push_back(seconds([&] { sslEncrypt.run(padded); }));
        ours[1].push_back(seconds([&] {
            QAESEncryption::Decrypt(
                QAESEncryption::AES_256, QAESEncryption::CBC, cipher, key, iv, QAESEncryption::PKCS7);
        }));
        theirs[1].push_back(seconds([&] { sslDecrypt.run(cipher); }));
    }
    const char* names[] = {"Crypt  ", "Decrypt"};
    for (int d = 0; d < 2; ++d) {
        const double mine = size / median(ours[d]) / 1048576.0;
        const double ref = size / median(theirs[d]) / 1048576.0;
        std::printf("AES-256-CBC %s 1 MiB: ZrUtils %8.0f MiB/s, OpenSSL %8.0f MiB/s, ratio %.2fx (target >= "
                    "0.5x: %s)\n",
            names[d], mine, ref, mine / ref, mine / ref >= 0.5 ? "met" : "MISSED");
    }
    return 0;
}

double opensslKeygen(int bits)
{
    return seconds([bits] {
        std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(
            EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr), &EVP_PKEY_CTX_free);
        EVP_PKEY* key = nullptr;
        EVP_PKEY_keygen_init(ctx.get());
        EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), bits);
        EVP_PKEY_keygen(ctx.get(), &key);
        EVP_PKEY_free(key);
    });
}

int benchRsa(const std::vector<int>& sizes, int reps)
{
    int failures = 0;
    for (int bits : sizes) {
        std::vector<double> ours, theirs;
        for (int i = 0; i < reps; ++i) {
            QByteArray pub, priv;
            bool ok = false;
            ours.push_back(
                seconds([&] { ok = QRSAEncryption::generatePairKey(pub, priv, QRSAEncryption::Rsa(bits)); }));
            if (!ok || !QRSAEncryption::testKeyPair(pub, priv, QRSAEncryption::Rsa(bits))) {
                std::printf("RSA-%d key generation failed\n", bits);
                ++failures;
            }
            theirs.push_back(opensslKeygen(bits));
        }
        const double mine = median(ours);
        const double ref = median(theirs);
        std::printf("RSA-%d generatePairKey, median of %d: ZrUtils %8.1f ms, OpenSSL %8.1f ms, ratio %.2fx",
            bits, reps, mine * 1000, ref * 1000, mine / ref);
        if (bits == 2048)
            std::printf(" (target <= 3x: %s)", mine / ref <= 3.0 ? "met" : "MISSED");
        std::printf("\n");
    }
    return failures;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> what(argv + 1, argv + argc);
    if (what.empty())
        what = {"aes", "rsa"};
    int failures = 0;
    for (const std::string& w : what) {
        if (w == "aes")
            failures += benchAes();
        else if (w == "rsa")
            failures += benchRsa({2048}, 21);
        else if (w == "big")
            failures += benchRsa({4096, 8192}, 3);
    }
    return failures == 0 ? 0 : 1;
}
