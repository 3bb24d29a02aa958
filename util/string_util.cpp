// String helpers for the text layer: trimming, splitting, case-insensitive
// comparison, formatting, wide/narrow and number-to-text conversion.
#include "vrncal/string_util.h"

#include <cctype>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <cwctype>

VRNCAL_API const char* DELIMITER = " ";

template VRNCAL_API std::string kel_tostring<long>(long);
template VRNCAL_API std::string kel_tostring<int>(int);
template VRNCAL_API std::string kel_tostring<double>(double);
template VRNCAL_API std::string kel_tostring<wchar_t>(wchar_t);
template VRNCAL_API std::wstring kel_towstring<long>(long);
template VRNCAL_API std::wstring kel_towstring<int>(int);
template VRNCAL_API std::wstring kel_towstring<double>(double);

namespace {

// The locale the wide/narrow conversions ask for.  Where it is missing,
// setlocale fails and leaves the current locale in place.
const char* const kConversionLocale = "chs.UTF-8";

template <typename Str>
void splitAt(const Str& s, const Str& delim, std::vector<Str>& out) {
    out.clear();
    // An empty delimiter would match everywhere; take the string whole.
    if (delim.empty()) {
        if (!s.empty()) out.push_back(s);
        return;
    }
    typename Str::size_type start = 0;
    typename Str::size_type pos = s.find(delim, start);
    while (pos != Str::npos) {
        out.push_back(s.substr(start, pos - start));
        start = pos + 1;  // one past the match START, not its end: kept on purpose
        pos = s.find(delim, start);
    }
    // A trailing delimiter leaves no empty last piece.
    if (start < s.size()) out.push_back(s.substr(start));
}

template <typename Str>
Str replaceAll(Str& s, const Str& pattern, const Str& replacement) {
    // An empty pattern matches everywhere and would never finish.
    if (pattern.empty()) return s;
    typename Str::size_type pos = 0;
    while ((pos = s.find(pattern, pos)) != Str::npos) {
        s.replace(pos, pattern.size(), replacement);
        pos += replacement.size();
    }
    return s;
}

}  // namespace

std::string& StringUtil::trim(std::string& s, const char* set) {
    return ltrim(rtrim(s, set), set);
}

std::string& StringUtil::ltrim(std::string& s, const char* set) {
    if (set == nullptr) return s;
    s.erase(0, s.find_first_not_of(set));  // npos erases everything
    return s;
}

std::string& StringUtil::rtrim(std::string& s, const char* set) {
    if (set == nullptr) return s;
    s.erase(s.find_last_not_of(set) + 1);  // npos + 1 == 0 erases everything
    return s;
}

int StringUtil::compareNoCase(const std::string& a, const std::string& b) {
    std::string ua = a;
    std::string ub = b;
    toUpper(ua);
    toUpper(ub);
    // std::string::compare: bytes of the common length first, then the
    // length difference clamped to int.
    return ua.compare(ub);
}

bool StringUtil::startWith(const std::string& s, const std::string& p) {
    // Lengths compared as 32-bit signed values, as the existing callers did.
    if (static_cast<int>(s.size()) < static_cast<int>(p.size())) return false;
    // Compares the END of s: kept on purpose, callers depend on it.
    return compareNoCase(s.substr(s.size() - p.size()), p) == 0;
}

bool StringUtil::endWith(const std::string& s, const std::string& p) {
    if (s.size() < p.size()) return false;
    // Compares the empty tail of s, so only an empty p matches: kept on purpose.
    return compareNoCase(s.substr(s.size()), p) == 0;
}

void StringUtil::split(const std::string& s, const std::string& delim,
                       std::vector<std::string>& out) {
    splitAt(s, delim, out);
}

void StringUtil::wsplit(const std::wstring& s, const std::wstring& delim,
                        std::vector<std::wstring>& out) {
    splitAt(s, delim, out);
}

std::string StringUtil::ReplaceInPlace(std::string& s, const std::string& pattern,
                                       const std::string& replacement) {
    return replaceAll(s, pattern, replacement);
}

std::wstring StringUtil::ReplaceInPlace(std::wstring& s, const std::wstring& pattern,
                                        const std::wstring& replacement) {
    return replaceAll(s, pattern, replacement);
}

std::string StringUtil::format(const char* fmt, ...) {
    if (fmt == nullptr) return std::string();
    // Fixed buffer: longer output is cut at 2047 characters on purpose.
    char buf[2048] = {};
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(buf, sizeof buf, fmt, args);
    va_end(args);
    return std::string(buf);
}

std::string StringUtil::to_string(const std::wstring& s) {
    if (s.empty()) return std::string();
    std::setlocale(LC_CTYPE, kConversionLocale);
    std::string buf(4 * s.size() + 1, '\0');
    std::size_t n = std::wcstombs(&buf[0], s.c_str(), buf.size());
    // A character the locale cannot encode fails the whole conversion.
    if (n == static_cast<std::size_t>(-1)) return std::string();
    buf.resize(n);
    return buf;
}

std::wstring StringUtil::to_wstring(const std::string& s) {
    std::setlocale(LC_CTYPE, kConversionLocale);
    std::wstring buf(s.size() + 1, L'\0');
    std::size_t n = std::mbstowcs(&buf[0], s.c_str(), buf.size());
    // An invalid sequence fails the whole conversion, not just its tail.
    if (n == static_cast<std::size_t>(-1)) return std::wstring();
    buf.resize(n);
    return buf;
}

std::string StringUtil::to_string(long v) { return kel_tostring(v); }
std::string StringUtil::to_string(int v) { return kel_tostring(v); }
std::string StringUtil::to_string(double v) { return kel_tostring(v); }
std::string StringUtil::to_string(wchar_t v) { return kel_tostring(v); }
std::wstring StringUtil::to_wstring(long v) { return kel_towstring(v); }
std::wstring StringUtil::to_wstring(int v) { return kel_towstring(v); }
std::wstring StringUtil::to_wstring(double v) { return kel_towstring(v); }

int StringUtil::hexStrToi(const std::wstring& s) {
    // Values beyond int wrap (modulo 2^32), as the existing files expect.
    return static_cast<int>(std::wcstol(s.c_str(), nullptr, 16));
}

bool StringUtil::IsNum(const std::wstring& s) {
    // Deliberately loose: no digit is required and '.' may repeat.
    for (std::wstring::size_type i = 0; i < s.size(); ++i) {
        const wchar_t c = s[i];
        if ((c >= L'0' && c <= L'9') || c == L'.') continue;
        if (i == 0 && (c == L'+' || c == L'-')) continue;
        return false;
    }
    return true;
}

std::string StringUtil::toUpper(std::string& s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string StringUtil::toLower(std::string& s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::wstring StringUtil::toUpper(std::wstring& s) {
    for (wchar_t& c : s) c = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    return s;
}

std::wstring StringUtil::toLower(std::wstring& s) {
    for (wchar_t& c : s) c = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
    return s;
}
