#include "sdk_fixture.h"

#include <memory>

#include "testing/sim_process.h"

namespace sdktest {

namespace {

vsim::testing::SimProcess* sim = nullptr;

class SimEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    vsim::testing::SimOptions o;
    o.args = {"--max-wait-ms", "5000"};
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

// Conversions through the library's own entry points.
std::u16string u(const std::string& s) {
  std::u16string out(s.size() + 1, u'\0');
  unsigned size = static_cast<unsigned>(out.size()), length = 0;
  EXPECT_EQ(RfcUTF8ToSAPUC(reinterpret_cast<const RFC_BYTE*>(s.data()), static_cast<unsigned>(s.size()), out.data(),
                           &size, &length, nullptr),
            RFC_OK);
  out.resize(length);
  return out;
}

std::string utf8(std::u16string_view s) {
  std::string out(3 * s.size() + 1, '\0');
  unsigned size = static_cast<unsigned>(out.size()), length = 0;
  EXPECT_EQ(RfcSAPUCToUTF8(s.data(), static_cast<unsigned>(s.size()), reinterpret_cast<RFC_BYTE*>(out.data()), &size,
                           &length, nullptr),
            RFC_OK);
  out.resize(length);
  return out;
}

std::string utf8(const SAP_UC* s) {
  if (!s) return {};
  size_t n = 0;
  while (s[n]) ++n;
  return utf8(std::u16string_view(s, n));
}

const std::string& rfcHost() { return sim->rfcHost(); }
std::string rfcPort() { return std::to_string(sim->rfcPort()); }
const std::string& soapUrl() { return sim->soapUrl(); }

Params::Params(std::initializer_list<std::pair<std::string, std::string>> pairs) {
  for (const auto& [k, v] : pairs) set(k, v);
}

Params Params::logon() {
  return Params{{"ashost", rfcHost()}, {"gwserv", rfcPort()},  {"client", "001"},
                {"user", "DEMO"},      {"passwd", "Welcome1"}, {"lang", "EN"}};
}

Params& Params::set(const std::string& name, const std::string& value) {
  for (auto& [k, v] : pairs_)
    if (k == u(name)) {
      v = u(value);
      return *this;
    }
  pairs_.emplace_back(u(name), u(value));
  return *this;
}

Params& Params::remove(const std::string& name) {
  std::erase_if(pairs_, [&](const auto& p) { return p.first == u(name); });
  return *this;
}

const RFC_CONNECTION_PARAMETER* Params::data() {
  array_.clear();
  for (const auto& [k, v] : pairs_) array_.push_back({k.c_str(), v.c_str()});
  return array_.data();
}

RFC_CONNECTION_HANDLE open(Params p) {
  RFC_ERROR_INFO info;
  RFC_CONNECTION_HANDLE c = RfcOpenConnection(p.data(), p.count(), &info);
  EXPECT_NE(c, nullptr) << describe(info.code, info);
  return c;
}

Call::Call(RFC_CONNECTION_HANDLE c, const std::string& function) : connection_(c) {
  RFC_ERROR_INFO info;
  RFC_FUNCTION_DESC_HANDLE d = RfcGetFunctionDesc(c, u(function).c_str(), &info);
  EXPECT_NE(d, nullptr) << describe(info.code, info);
  if (d) handle_ = RfcCreateFunction(d, &info);
}

Call::~Call() {
  if (handle_) RfcDestroyFunction(handle_, nullptr);
}

RFC_RC Call::invoke(RFC_ERROR_INFO* info) {
  RFC_ERROR_INFO local;
  return RfcInvoke(connection_, handle_, info ? info : &local);
}

void Call::setString(const std::string& name, const std::string& value) { sdktest::setString(handle_, name, value); }

void Call::setInt(const std::string& name, int value) {
  RFC_ERROR_INFO info;
  ASSERT_EQ(RfcSetInt(handle_, u(name).c_str(), value, &info), RFC_OK) << describe(info.code, info);
}

std::string Call::getString(const std::string& name) { return sdktest::getString(handle_, name); }

int Call::getInt(const std::string& name) {
  RFC_ERROR_INFO info;
  RFC_INT v = 0;
  EXPECT_EQ(RfcGetInt(handle_, u(name).c_str(), &v, &info), RFC_OK) << describe(info.code, info);
  return v;
}

std::string getString(DATA_CONTAINER_HANDLE c, const std::string& name) {
  RFC_ERROR_INFO info;
  unsigned length = 0;
  RfcGetString(c, u(name).c_str(), nullptr, 0, &length, &info);
  std::u16string buf(length + 1, u'\0');
  const RFC_RC rc = RfcGetString(c, u(name).c_str(), buf.data(), length + 1, &length, &info);
  EXPECT_EQ(rc, RFC_OK) << name << ": " << describe(rc, info);
  return utf8(std::u16string_view(buf.data(), length));
}

void setString(DATA_CONTAINER_HANDLE c, const std::string& name, const std::string& value) {
  RFC_ERROR_INFO info;
  const std::u16string v = u(value);
  const RFC_RC rc = RfcSetString(c, u(name).c_str(), v.c_str(), static_cast<unsigned>(v.size()), &info);
  EXPECT_EQ(rc, RFC_OK) << name << "=" << value << ": " << describe(rc, info);
}

std::string describe(RFC_RC rc, const RFC_ERROR_INFO& info) {
  std::string out = utf8(RfcGetRcAsString(rc));
  if (info.code != RFC_OK)
    out += " (got " + utf8(RfcGetRcAsString(info.code)) + " group " + std::to_string(static_cast<int>(info.group)) +
           " key " + utf8(info.key) + ": " + utf8(info.message) + ")";
  return out;
}

void planFault(const std::string& fault, const std::string& user) {
  RFC_CONNECTION_HANDLE c = open();
  {
    Call f(c, "Z_VSIM_FAULT");
    f.setString("FAULT", fault);
    f.setString("FOR_USER", user);
    RFC_ERROR_INFO info;
    EXPECT_EQ(f.invoke(&info), RFC_OK) << describe(info.code, info);
  }
  RfcCloseConnection(c, nullptr);
}

}  // namespace sdktest
