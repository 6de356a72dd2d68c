#include "platform/base/CodePage.h"

#include "CodeTables.h"
#include "KoreanMail.h"
#include "Transcode.h"
#include "Utf8.h"

namespace orvi::platform {
namespace {

constexpr int koreanMailCodePage = 50225;
constexpr int koreanCodePage = 949;

struct SingleByteDecoder {
    const SingleByteTables& tables;

    Step<wchar_t> operator()(const unsigned char* source, std::size_t) const
    {
        return Step<wchar_t>::make(1, tables.units[source[0]]);
    }
};

struct SingleByteEncoder {
    const SingleByteTables& tables;

    Step<unsigned char> operator()(const wchar_t* source, std::size_t) const
    {
        const std::uint8_t code = tables.codes[source[0]];
        return Step<unsigned char>::make(1, code == 0 && source[0] != 0 ? std::uint8_t('?') : code);
    }
};

struct DoubleByteDecoder {
    const DoubleByteTables& tables;

    Step<wchar_t> operator()(const unsigned char* source, std::size_t size) const
    {
        const std::uint8_t row = tables.rows[source[0]];
        if (row == 0)
            return Step<wchar_t>::make(1, tables.units[0][source[0]]);
        if (size < 2 || source[1] == 0) // a NUL is never half of a character: it may end the text
            return Step<wchar_t>::make(1, L'?');
        return Step<wchar_t>::make(2, tables.units[row][source[1]]);
    }
};

struct DoubleByteEncoder {
    const DoubleByteTables& tables;

    Step<unsigned char> operator()(const wchar_t* source, std::size_t) const
    {
        const std::uint16_t code = tables.codes[source[0]];
        if (code > 0xFF)
            return Step<unsigned char>::make(1, std::uint8_t(code >> 8), std::uint8_t(code));
        return Step<unsigned char>::make(1, code == 0 && source[0] != 0 ? std::uint8_t('?')
                                                                        : std::uint8_t(code));
    }
};

int knownAs(int codePage) { return codePage == 0 ? 1252 : codePage; }

/** What is said of a page without tables. */
std::ptrdiff_t refusal(int codePage)
{
    return codePage == koreanMailCodePage || isDoubleBytePage(codePage) ? codePageLacksTables
                                                                        : unknownCodePage;
}

std::ptrdiff_t signedSize(std::size_t size) { return std::ptrdiff_t(size); }

} // namespace

std::ptrdiff_t codePageToWide(int codePage, const char* source, std::size_t size, wchar_t* target,
                              std::size_t capacity)
{
    const auto bytes = reinterpret_cast<const unsigned char*>(source);
    const int page = knownAs(codePage);
    if (page == utf8CodePage)
        return signedSize(utf8ToWide(bytes, size, target, capacity));
    if (const SingleByteTables* tables = singleByteTables(page))
        return signedSize(convertText(bytes, size, target, capacity, SingleByteDecoder{*tables}));
    if (const DoubleByteTables* tables = doubleByteTables(page))
        return signedSize(convertText(bytes, size, target, capacity, DoubleByteDecoder{*tables}));
    if (page == koreanMailCodePage)
        if (const DoubleByteTables* tables = doubleByteTables(koreanCodePage))
            return signedSize(koreanMailToWide(*tables, bytes, size, target, capacity));
    return refusal(page);
}

std::ptrdiff_t wideToCodePage(int codePage, const wchar_t* source, std::size_t size, char* target,
                              std::size_t capacity)
{
    const auto bytes = reinterpret_cast<unsigned char*>(target);
    const int page = knownAs(codePage);
    if (page == utf8CodePage)
        return signedSize(wideToUtf8(source, size, bytes, capacity));
    if (const SingleByteTables* tables = singleByteTables(page))
        return signedSize(convertText(source, size, bytes, capacity, SingleByteEncoder{*tables}));
    if (const DoubleByteTables* tables = doubleByteTables(page))
        return signedSize(convertText(source, size, bytes, capacity, DoubleByteEncoder{*tables}));
    if (page == koreanMailCodePage)
        if (const DoubleByteTables* tables = doubleByteTables(koreanCodePage))
            return signedSize(wideToKoreanMail(*tables, source, size, bytes, capacity));
    return refusal(page);
}

} // namespace orvi::platform
