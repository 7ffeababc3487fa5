// printf-style formatting into UTF-16, type-safe: the conversion letters of
// the C library are read from the format, and each argument carries its
// own type, so a mismatch is reported instead of reading garbage.
//
// Conversions: %d %i %u %o %x %X %c %s %S %p %f %F %e %E %g %G %a %A %%,
// with the flags - + blank # 0, a width and a precision (either may be *).
// Length modifiers (h hh l ll L j z t w I I32 I64) are accepted; h and hh
// narrow an integer to 16 and 8 bits, the others leave the argument's own
// size, which the type already tells.
//
// Strings: %s takes a wide string (const char16_t*, BSTR, std::u16string,
// std::u16string_view, anything convertible to const char16_t*) as well as
// a narrow one (const char*, std::string, std::string_view), which is read
// as UTF-8. %hs and %S say "narrow" explicitly, as the platform's wide
// printf does; they accept the same arguments. A null pointer prints
// "(null)". Width and precision count UTF-16 units.
// %p prints 16 upper-case hex digits, as the platform does on 64 bits.
// %c takes an integer or a character and prints that code point.
// Positional arguments (%1$d) and %n are not supported and raise.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

struct FormatArg {
  enum Kind { Signed, Unsigned, Float, Wide, Narrow, Pointer };
  Kind kind;
  int size = 0;  // bytes of an integer argument
  bool null = false;
  union {
    long long i;
    unsigned long long u;
    double d;
    const void* p;
  };
  std::u16string_view wide;
  std::string_view narrow;
};

namespace veltrane::runtime::detail {

template <class T>
FormatArg MakeFormatArg(const T& v) {
  using D = std::remove_cv_t<T>;
  FormatArg a{};
  if constexpr (std::is_same_v<D, std::nullptr_t>) {
    a.kind = FormatArg::Pointer;
    a.p = nullptr;
  } else if constexpr (std::is_same_v<D, bool>) {
    a.kind = FormatArg::Signed;
    a.size = sizeof(int);
    a.i = v ? 1 : 0;
  } else if constexpr (std::is_same_v<D, char16_t> || std::is_same_v<D, char32_t> || std::is_same_v<D, wchar_t>) {
    a.kind = FormatArg::Unsigned;
    a.size = sizeof(D);
    a.u = static_cast<unsigned long long>(v);
  } else if constexpr (std::is_enum_v<D>) {
    return MakeFormatArg(static_cast<std::underlying_type_t<D>>(v));
  } else if constexpr (std::is_integral_v<D> && std::is_signed_v<D>) {
    a.kind = FormatArg::Signed;
    a.size = sizeof(D);
    a.i = v;
  } else if constexpr (std::is_integral_v<D>) {
    a.kind = FormatArg::Unsigned;
    a.size = sizeof(D);
    a.u = v;
  } else if constexpr (std::is_floating_point_v<D>) {
    a.kind = FormatArg::Float;
    a.d = static_cast<double>(v);
  } else if constexpr (std::is_convertible_v<const T&, std::u16string_view> && !std::is_pointer_v<std::decay_t<T>>) {
    a.kind = FormatArg::Wide;
    a.wide = std::u16string_view(v);
  } else if constexpr (std::is_convertible_v<const T&, std::string_view> && !std::is_pointer_v<std::decay_t<T>>) {
    a.kind = FormatArg::Narrow;
    a.narrow = std::string_view(v);
  } else if constexpr (std::is_convertible_v<const T&, const char16_t*>) {
    const char16_t* s = v;
    a.kind = FormatArg::Wide;
    a.null = s == nullptr;
    if (s) a.wide = std::u16string_view(s);
  } else if constexpr (std::is_convertible_v<const T&, const char*>) {
    const char* s = v;
    a.kind = FormatArg::Narrow;
    a.null = s == nullptr;
    if (s) a.narrow = std::string_view(s);
  } else if constexpr (std::is_pointer_v<D>) {
    a.kind = FormatArg::Pointer;
    a.p = reinterpret_cast<const void*>(v);
  } else {
    static_assert(sizeof(T) == 0, "FormatW: unsupported argument type");
  }
  return a;
}

}  // namespace veltrane::runtime::detail

// Formats with the arguments given as a list; raises std::invalid_argument
// for a malformed format, a missing argument or a type that does not fit
// the conversion. Surplus arguments are ignored, as printf does.
std::u16string FormatWArgs(std::u16string_view format, const FormatArg* args, size_t count);

template <class... Args>
std::u16string FormatW(std::u16string_view format, const Args&... args) {
  if constexpr (sizeof...(Args) == 0) {
    return FormatWArgs(format, nullptr, 0);
  } else {
    const FormatArg list[] = {veltrane::runtime::detail::MakeFormatArg(args)...};
    return FormatWArgs(format, list, sizeof...(Args));
  }
}
