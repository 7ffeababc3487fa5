#include "rfc_fixture.h"

#include <algorithm>

#include "testing/sim_process.h"

namespace rfctest {

namespace {

vsim::testing::SimProcess* sim = nullptr;

class SimEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    vsim::testing::SimOptions o;
    o.args = {"--max-wait-ms", "10000"};
    sim = new vsim::testing::SimProcess(o);
  }
  void TearDown() override {
    EXPECT_EQ(sim->stop(), 0);
    delete sim;
    sim = nullptr;
  }
};

const auto* environment = ::testing::AddGlobalTestEnvironment(new SimEnvironment);

}  // namespace

std::u16string u(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

std::string text(std::u16string_view s) {
  std::string out;
  for (char16_t c : s) out += c < 0x80 ? static_cast<char>(c) : '?';
  return out;
}

std::string text(const SAP_UC* s) { return s ? text(std::u16string_view(s)) : std::string(); }

std::string field(const void* p, size_t units) {
  std::string s = text(std::u16string_view(static_cast<const SAP_UC*>(p), units));
  s.erase(s.find_last_not_of(' ') + 1);
  return s;
}

void setField(void* p, size_t units, const std::string& value) {
  auto* out = static_cast<SAP_UC*>(p);
  for (size_t i = 0; i < units; ++i) out[i] = i < value.size() ? static_cast<SAP_UC>(value[i]) : u' ';
}

const std::string& rfcHost() { return sim->rfcHost(); }
std::string rfcPort() { return std::to_string(sim->rfcPort()); }

std::string connectString(const std::string& extra) {
  std::string s = "ASHOST=" + rfcHost() + " GWSERV=" + rfcPort() +
                  " CLIENT=001 USER=DEMO PASSWD=Welcome1 LANG=EN TOUPPER=0";
  return extra.empty() ? s : s + " " + extra;
}

RFC_HANDLE open(const std::string& extra) {
  std::u16string cs = u(connectString(extra));
  RFC_ERROR_INFO_EX info{};
  const RFC_HANDLE h = RfcOpenExU(cs.data(), &info);
  EXPECT_NE(h, RFC_HANDLE_NULL) << info.group << " " << text(info.key) << ": " << text(info.message);
  return h;
}

std::string lastError() {
  RFC_ERROR_INFO_EX info{};
  if (RfcLastErrorExU(&info) != 0) return "none";
  return std::to_string(info.group) + " " + text(info.key) + ": " + text(info.message);
}

Parameters& Parameters::add(const std::string& name, RFC_TYPEHANDLE type, void* addr, unsigned leng) {
  names_.push_back(std::make_unique<std::u16string>(u(name)));
  entries_.insert(entries_.end() - 1, {names_.back()->data(), static_cast<unsigned>(name.size()), type, leng, addr});
  return *this;
}

RFC_PARAMETER* Parameters::data() { return entries_.data(); }

Tables::~Tables() {
  for (RFC_TABLE& t : entries_)
    if (t.ithandle) ItDeleteU(t.ithandle);
}

Tables& Tables::add(const std::string& name, RFC_TYPEHANDLE rowType, unsigned rowLength, bool create) {
  names_.push_back(std::make_unique<std::u16string>(u(name)));
  RFC_TABLE t{};
  t.name = names_.back()->data();
  t.nlen = static_cast<unsigned>(name.size());
  t.type = rowType;
  t.leng = rowLength;
  t.ithandle = create ? ItCreateU(names_.back()->data(), rowLength, 0, 0) : nullptr;
  t.itmode = RFC_ITMODE_BYREFERENCE;
  entries_.insert(entries_.end() - 1, t);
  return *this;
}

RFC_TABLE* Tables::data() { return entries_.data(); }

CharCall callChars(RFC_HANDLE h, const std::string& function, const std::vector<std::pair<std::string, std::string>>& in,
                   const std::vector<std::pair<std::string, unsigned>>& out, unsigned units) {
  std::vector<std::u16string> inValues, outValues;
  Parameters exporting, importing;
  for (const auto& [name, value] : in) inValues.push_back(u(value));
  for (size_t i = 0; i < in.size(); ++i)
    exporting.add(in[i].first, RFCTYPE_CHAR, inValues[i].data(), static_cast<unsigned>(2 * inValues[i].size()));
  for (const auto& [name, n] : out) outValues.emplace_back(n ? n : units, u' ');
  for (size_t i = 0; i < out.size(); ++i)
    importing.add(out[i].first, RFCTYPE_CHAR, outValues[i].data(), static_cast<unsigned>(2 * outValues[i].size()));
  std::u16string fn = u(function);
  rfc_char_t* exception = nullptr;
  CharCall r;
  r.rc = RfcCallReceiveExU(h, fn.data(), exporting.data(), importing.data(), nullptr, nullptr, &exception);
  if (exception) r.exception = text(exception);
  for (const auto& v : outValues) r.results.push_back(field(v.data(), v.size()));
  return r;
}

}  // namespace rfctest
