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

std::u16string u(const std::string& s) {
  std::u16string out;
  for (size_t i = 0; i < s.size();) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    char32_t cp;
    int extra;
    if (c < 0x80) {
      cp = c;
      extra = 0;
    } else if ((c & 0xE0) == 0xC0) {
      cp = c & 0x1F;
      extra = 1;
    } else if ((c & 0xF0) == 0xE0) {
      cp = c & 0x0F;
      extra = 2;
    } else {
      cp = c & 0x07;
      extra = 3;
    }
    ++i;
    for (int k = 0; k < extra && i < s.size(); ++k, ++i) cp = (cp << 6) | (static_cast<unsigned char>(s[i]) & 0x3F);
    if (cp >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(cp);
    }
  }
  return out;
}

std::string utf8(std::u16string_view s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    char32_t c = s[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size()) c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
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
