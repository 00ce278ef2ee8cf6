// Bulk AES on the processor's AES instructions, and the switch between that and the
// portable round functions of QAESEncryption. Both give identical bytes.
#ifndef ZRUTILS_CRYPTO_AESENGINE_H
#define ZRUTILS_CRYPTO_AESENGINE_H

#include <ZrUtils/zrutils_export.h>

#include <cstddef>
#include <cstdint>

namespace ZrUtils
{
namespace Internal
{

// True when this processor has AES instructions (always false off x86).
ZRUTILS_TESTS_EXPORT bool aesHardwareSupported();
// Lets tests force the portable path; allowed by default.
ZRUTILS_TESTS_EXPORT void setAesHardwareAllowed(bool allowed);
// Supported and allowed.
ZRUTILS_TESTS_EXPORT bool aesHardwareActive();

// Streaming kernels. `schedule` holds (rounds + 1) * 16 bytes of round keys,
// `len` is a multiple of 16, `chain` is the IV on entry and the chaining value
// after the last block on return (unused in ECB). Modes are QAESEncryption::Mode
// values 0..3. Only call when aesHardwareActive().
void aesHardwareEncode(int mode, int rounds, const std::uint8_t* schedule, std::uint8_t* chain,
    const std::uint8_t* in, std::uint8_t* out, std::size_t len);
void aesHardwareDecode(int mode, int rounds, const std::uint8_t* schedule, std::uint8_t* chain,
    const std::uint8_t* in, std::uint8_t* out, std::size_t len);

} // namespace Internal
} // namespace ZrUtils

#endif
