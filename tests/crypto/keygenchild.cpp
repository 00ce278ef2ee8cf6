// Generates key pairs in a process whose clocks stand still, so that two of these
// started together draw in "the same clock tick". Prints the clock-derived seed, then
// one public and private key per line, in hex.
#include <ZrUtils/QRSAEncryption.h>

#include "crypto/RsaMath.h"

#include <cstdio>
#include <ctime>

// Every clock reads the same instant, in this process and in the library it loads.
extern "C" Q_DECL_EXPORT int clock_gettime(clockid_t, struct timespec* ts)
{
    ts->tv_sec = 1700000000;
    ts->tv_nsec = 123456789;
    return 0;
}

int main(int argc, char** argv)
{
    const int pairs = argc > 1 ? std::atoi(argv[1]) : 4;
    std::printf("seed %u\n", ZrUtils::Internal::randomSeed());
    for (int i = 0; i < pairs; ++i) {
        QByteArray pub, priv;
        if (!ZrUtils::QRSAEncryption::generatePairKey(pub, priv, ZrUtils::QRSAEncryption::RSA_512))
            return 1;
        std::printf("%s %s\n", pub.toHex().constData(), priv.toHex().constData());
    }
    return 0;
}
