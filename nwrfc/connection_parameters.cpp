#include "nwrfc/connection_parameters.h"

#include <cwctype>

#include <boost/tokenizer.hpp>

namespace veltrane::nwrfc {

std::u16string NormaliseBackslashes(std::u16string_view text) {
  std::u16string out;
  out.reserve(text.size() + 8);
  for (size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c != u'\\') {
      out += c;
      continue;
    }
    const char16_t next = i + 1 < text.size() ? text[i + 1] : u'-';
    if (next == u'\\' || next == u'"') {
      out += c;
      out += next;
      ++i;
    } else {
      out += u"\\\\";
    }
  }
  return out;
}

void ConnectionParameters::AddConnectString(std::u16string_view normalised) {
  using Separator = boost::escaped_list_separator<char16_t>;
  const std::u16string text(normalised);
  const boost::tokenizer<Separator, std::u16string::const_iterator, std::u16string> tokens(
      text, Separator(u'\\', u' ', u'"'));
  for (const std::u16string& token : tokens) {
    const size_t equals = token.find(u'=');
    if (equals == std::u16string::npos || equals == 0) throw InvalidConnectString("Invalid connection string");
    std::u16string name = token.substr(0, equals);
    for (char16_t& c : name) c = static_cast<char16_t>(std::towlower(static_cast<wint_t>(c)));
    Add(std::move(name), token.substr(equals + 1));
  }
}

void ConnectionParameters::Add(std::u16string name, std::u16string value) {
  m_pairs.emplace_back(std::move(name), std::move(value));
}

const RFC_CONNECTION_PARAMETER* ConnectionParameters::Array() {
  m_array.clear();
  m_array.reserve(m_pairs.size());
  for (const auto& [name, value] : m_pairs) m_array.push_back({name.c_str(), value.c_str()});
  return m_array.data();
}

std::u16string ConnectionParameters::MaskedText() const {
  std::u16string text;
  for (const auto& [name, value] : m_pairs) {
    text += name;
    text += u'=';
    text += name == u"passwd" ? u"***" : value;
    text += u',';
  }
  return text;
}

}  // namespace veltrane::nwrfc
