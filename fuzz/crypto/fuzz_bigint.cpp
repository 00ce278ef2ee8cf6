// Arbitrary text into BigInt's text constructor, in the base the first byte chooses
// (0, which reads a prefix, or 2 to 62).
//
// Properties: whatever the text gave, its digits in that base (or in decimal after
// base 0) parse back to the same number and print the same digits again, also in
// upper case and through fromHex and the decimal string operators; longBits() counts
// the characters of getString(2); a plain decimal text within 18 digits gives the
// number it spells; fromHex reports -1 exactly when it leaves zero for text that is
// not "0".
#include <ZrUtils/BigInt.h>

#include <cstdlib>
#include <string>

namespace
{

[[noreturn]] void violated()
{
    __builtin_trap();
}

bool plainDecimal(const std::string& text)
{
    const size_t digits = text.size() - (text[0] == '-' ? 1 : 0);
    if (text.empty() || digits == 0 || digits > 18)
        return false;
    for (size_t i = text.size() - digits; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
    }
    return true;
}

void readsBack(const BigInt& value, int base)
{
    const std::string digits = value.getString(base);
    if (digits.empty())
        violated();
    const BigInt again(digits, base);
    if (again != value || again.getString(base) != digits)
        violated();
    if (base <= 36 && BigInt(value.getString(-base), base) != value)
        violated();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const int base = data[0] % 62 == 0 ? 0 : data[0] % 62 + 1;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    const BigInt value(text, base);

    readsBack(value, base == 0 ? 10 : base);
    readsBack(value, 16);
    readsBack(value, 2);
    const std::string binary = value.getString(2);
    if (value.longBits() != int(binary.size()) || value.longBytes() != (value.longBits() + 7) / 8)
        violated();
    BigInt hex;
    if (hex.fromHex(value.getString(16)) != 0 || hex != value)
        violated();
    if (!(value == value.getString(10)) || value != BigInt(0) + value.getString(10))
        violated();

    if (base == 10 && !text.empty() && plainDecimal(text) && value != BigInt(std::atoll(text.c_str())))
        violated();
    if (base == 16) {
        BigInt viaHex(7);
        const int status = viaHex.fromHex(text);
        if (viaHex != value || (status != 0 && status != -1) || (status == -1 && value != 0))
            violated();
    }
    return 0;
}
