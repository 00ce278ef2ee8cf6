// A GMP integer read from big-endian bytes, for reference computations beside the
// library's own arithmetic.
#ifndef ZRUTILS_TESTS_MPZ_H
#define ZRUTILS_TESTS_MPZ_H

#include <QByteArray>

#include <gmp.h>

struct Mpz {
    mpz_t value;
    explicit Mpz(const QByteArray& bigEndian = QByteArray())
    {
        mpz_init(value);
        mpz_import(value, static_cast<size_t>(bigEndian.size()), 1, 1, 1, 0, bigEndian.constData());
    }
    ~Mpz() { mpz_clear(value); }
    Mpz(const Mpz&) = delete;
    Mpz& operator=(const Mpz&) = delete;
    QByteArray hex() const
    {
        QByteArray text(int(mpz_sizeinbase(value, 16)) + 2, '\0');
        return mpz_get_str(text.data(), 16, value);
    }
};

#endif
