// StringUtil: string helpers for narrow and wide strings.
//
// Several helpers keep quirks that the text formats depend on; each is noted
// beside it.  kel_tostring / kel_towstring insert a value into a string stream
// with the stream's default formatting.
//
// Choices where callers could otherwise hang or crash:
//   - trim / ltrim / rtrim default to the set space, tab, CR, LF; a null set
//     removes nothing.
//   - split / wsplit with an empty delimiter do not split: the whole string is
//     the one piece (no piece at all for an empty string).  wsplit keeps and
//     drops empty pieces exactly as split does.
//   - ReplaceInPlace with an empty pattern leaves the string unchanged.
//   - format with a null format string gives the empty string.
//   - to_string(wstring) / to_wstring(string) give the empty string when the
//     conversion fails (a character the current locale cannot represent).
//     The locale "chs.UTF-8" they select usually does not exist on Linux; the
//     conversion then runs in whatever LC_CTYPE locale is current (in the
//     default "C" locale only ASCII converts).
#ifndef VRNCAL_STRING_UTIL_H
#define VRNCAL_STRING_UTIL_H

#include <sstream>
#include <string>
#include <vector>

#include "vrncal/export.h"

// The one-character string " ", the delimiter of point values.
extern VRNCAL_API const char* DELIMITER;

template <typename T>
std::string kel_tostring(T value) {
    std::ostringstream os;
    // A wchar_t goes in as its code (L'A' gives "65"): a narrow stream has no
    // wide character inserter, so it promotes to int.
    os << value;
    return os.str();
}

template <typename T>
std::wstring kel_towstring(T value) {
    std::wostringstream os;
    os << value;
    return os.str();
}

// The instantiations the library exports; hosts link these rather than
// instantiating their own.
extern template VRNCAL_API std::string kel_tostring<long>(long);
extern template VRNCAL_API std::string kel_tostring<int>(int);
extern template VRNCAL_API std::string kel_tostring<double>(double);
extern template VRNCAL_API std::string kel_tostring<wchar_t>(wchar_t);
extern template VRNCAL_API std::wstring kel_towstring<long>(long);
extern template VRNCAL_API std::wstring kel_towstring<int>(int);
extern template VRNCAL_API std::wstring kel_towstring<double>(double);

class VRNCAL_API StringUtil {
public:
    // Trimming, in place; the default set is space, tab, CR and LF.  ltrim
    // erases up to the first character not in the set, rtrim after the last
    // one (a string made only of set characters becomes empty); trim is rtrim
    // then ltrim.
    static std::string& trim(std::string& s, const char* set = " \t\r\n");
    static std::string& ltrim(std::string& s, const char* set = " \t\r\n");
    static std::string& rtrim(std::string& s, const char* set = " \t\r\n");

    // Case-insensitive comparison of upper-cased copies; 0 means equal.  The
    // bytes of the common length decide; otherwise the length difference,
    // clamped to the int range.
    static int compareNoCase(const std::string& a, const std::string& b);
    // Tests the END of s against p (kept as existing callers use it).
    static bool startWith(const std::string& s, const std::string& p);
    // True exactly when p is empty and s is not shorter (kept as is).
    static bool endWith(const std::string& s, const std::string& p);

    // Splits s at delim; the scan restarts one character past the start of
    // each match, so with a longer delimiter every later piece begins with
    // the delimiter's remaining characters ("a--b" at "--" gives "a", "-b").
    // Empty pieces are kept except a trailing one.
    static void split(const std::string& s, const std::string& delim,
                      std::vector<std::string>& out);
    static void wsplit(const std::wstring& s, const std::wstring& delim,
                       std::vector<std::wstring>& out);

    // Replaces every occurrence from the left, resuming after the inserted
    // text; returns a copy of the result.
    static std::string ReplaceInPlace(std::string& s, const std::string& pattern,
                                      const std::string& replacement);
    static std::wstring ReplaceInPlace(std::wstring& s, const std::wstring& pattern,
                                       const std::wstring& replacement);

    // printf-style formatting; the result is cut at 2047 characters.
    static std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

    // Wide/narrow conversion.  Both set the process's LC_CTYPE locale to
    // "chs.UTF-8" and leave it set (when that locale exists).
    static std::string to_string(const std::wstring& s);
    static std::wstring to_wstring(const std::string& s);
    static std::string to_string(long v);
    static std::string to_string(int v);
    static std::string to_string(double v);
    static std::string to_string(wchar_t v);
    static std::wstring to_wstring(long v);
    static std::wstring to_wstring(int v);
    static std::wstring to_wstring(double v);

    // wcstol in base 16, truncated to int ("ffffffff" gives -1).
    static int hexStrToi(const std::wstring& s);
    // Digits and '.' anywhere, '+' or '-' first; "", "+", "." and "1.2.3"
    // all pass.
    static bool IsNum(const std::wstring& s);

    static std::string toUpper(std::string& s);
    static std::string toLower(std::string& s);
    static std::wstring toUpper(std::wstring& s);
    static std::wstring toLower(std::wstring& s);
};

#endif
