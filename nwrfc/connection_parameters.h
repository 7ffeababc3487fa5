// The NW session's connection parameters: the connect string split into
// name=value pairs, the logon data added behind them, and the array that
// RfcOpenConnection takes.
//
//   ConnectionParameters p;
//   p.AddConnectString(u"ASHOST=host SYSNR=00 SAPROUTER=\"/H/a/S/b\"");  // may throw, see below
//   p.Add(u"client", u"001");
//   sdk.RfcOpenConnection(p.Array(), p.Count(), &info);
//
// The string is tokenized by Boost's escaped_list_separator (escape "\",
// separator a blank, quote "\""), after its backslashes are normalised so
// that a path keeps single backslashes while \" still quotes. No parameter
// name is known here: whatever the SDK understands may stand in the string.
// Nothing is merged: a name given twice goes to the SDK twice, in order.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nwrfc/nwrfc_types.h"

namespace veltrane::nwrfc {

// A connect string that is not a list of name=value pairs (an empty token,
// from two blanks in a row or a blank at an end, or one without a name).
class InvalidConnectString : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Each "\" followed by "\" or "\"" is kept with its partner; any other "\"
// (a last one too) is doubled.
std::u16string NormaliseBackslashes(std::u16string_view text);

class ConnectionParameters {
 public:
  ConnectionParameters() = default;
  ConnectionParameters(const ConnectionParameters&) = delete;
  ConnectionParameters& operator=(const ConnectionParameters&) = delete;

  // Adds the pairs of a normalised connect string: the name in front of the
  // first "=" in lower case, the value behind it exactly. A token without a
  // name raises InvalidConnectString; a stray escape or an open quote raises
  // what the tokenizer raises (a boost::exception).
  void AddConnectString(std::u16string_view normalised);
  void Add(std::u16string name, std::u16string value);

  // The pairs in order, as RFC_CONNECTION_PARAMETER; valid until the next Add.
  const RFC_CONNECTION_PARAMETER* Array();
  unsigned Count() const { return static_cast<unsigned>(m_pairs.size()); }
  const std::vector<std::pair<std::u16string, std::u16string>>& Pairs() const { return m_pairs; }

  // "name=value," for each pair, the value of "passwd" as "***".
  std::u16string MaskedText() const;

 private:
  std::vector<std::pair<std::u16string, std::u16string>> m_pairs;
  std::vector<RFC_CONNECTION_PARAMETER> m_array;
};

}  // namespace veltrane::nwrfc
