// RFC_PING, RFC_SYSTEM_INFO, STFC_CONNECTION, STFC_STRUCTURE, RFC_GET_ATTRIBUTES.
#include "engine/convert.h"
#include "engine/module_builder.h"

namespace vsim {

namespace {

std::string respText(CallContext& ctx) {
  const SystemInfo& info = ctx.system().info();
  char buf[256];
  std::snprintf(buf, sizeof buf, "SAP R/3 Rel. %-4s  Sysid: %-8s Date: %s   Time: %s   Logon_Data: %s/%s/%s",
                info.release.c_str(), info.sysid.c_str(), System::today().c_str(), System::now().c_str(),
                ctx.logon().client.c_str(), ctx.logon().user.c_str(), ctx.logon().language.c_str());
  return buf;
}

}  // namespace

void installBasisModules(System& s) {
  ModuleBuilder(s, "RFC_PING", "SRFC", "Test module for RFC connections").install([](CallContext&) {});

  ModuleBuilder(s, "RFC_SYSTEM_INFO", "SRFC", "Information about the RFC partner system")
      .exp("RFCSI_EXPORT", "RFCSI")
      .exp("CURRENT_RESOURCES", "I", "Currently available resources")
      .exp("MAXIMAL_RESOURCES", "I", "Maximum available resources")
      .exp("RECOMMENDED_DELAY", "I", "Recommended delay")
      .exp("S4_HANA", "CHAR1", "System is an S/4HANA system")
      .exp("FAST_SER_VERS", "I", "Version of fast serialization")
      .install([](CallContext& ctx) {
        const SystemInfo& info = ctx.system().info();
        Value& si = ctx["RFCSI_EXPORT"];
        auto set = [&](const char* field, const std::string& text) {
          const TypeDesc& t = ctx.typeOf("RFCSI_EXPORT");
          si[field] = parseValue(*t.components[static_cast<size_t>(t.find(field))].type, text, TextForm::Plain);
        };
        set("RFCPROTO", "011");
        set("RFCCHARTYP", "4103");
        set("RFCINTTYP", "LIT");
        set("RFCFLOTYP", "IE3");
        set("RFCDEST", info.host + "_" + info.sysid + "_" + info.instance);
        set("RFCHOST", info.host);
        set("RFCSYSID", info.sysid);
        set("RFCDATABS", info.sysid);
        set("RFCDBHOST", info.host);
        set("RFCDBSYS", info.dbsys);
        set("RFCSAPRL", info.release);
        set("RFCMACH", "  390");
        set("RFCOPSYS", info.opsys);
        set("RFCTZONE", "     0");
        set("RFCDAYST", "");
        set("RFCIPADDR", info.ipAddress);
        set("RFCKERNRL", info.kernel);
        set("RFCHOST2", info.host);
        set("RFCIPV6ADDR", info.ipAddress);
        ctx["CURRENT_RESOURCES"] = Value(std::int64_t{8});
        ctx["MAXIMAL_RESOURCES"] = Value(std::int64_t{10});
        ctx["RECOMMENDED_DELAY"] = Value(std::int64_t{0});
        ctx["S4_HANA"] = Value("X");
        ctx["FAST_SER_VERS"] = Value(std::int64_t{1});
      });

  ModuleBuilder(s, "STFC_CONNECTION", "STFC", "Test module for RFC connections with text echo")
      .imp("REQUTEXT", "SY-LISEL", false, {}, "Request text")
      .exp("ECHOTEXT", "SY-LISEL", "Echo of the request text")
      .exp("RESPTEXT", "SY-LISEL", "Response text")
      .install([](CallContext& ctx) {
        ctx["ECHOTEXT"] = ctx["REQUTEXT"];
        ctx.set("RESPTEXT", respText(ctx));
      });

  ModuleBuilder(s, "STFC_STRUCTURE", "STFC", "Test module for structures and tables")
      .imp("IMPORTSTRUCT", "RFCTEST", false, {}, "Import structure")
      .exp("ECHOSTRUCT", "RFCTEST", "Echo of the import structure")
      .exp("RESPTEXT", "SY-LISEL", "Response text")
      .tab("RFCTABLE", "RFCTEST", false, "Table of RFCTEST rows")
      .install([](CallContext& ctx) {
        ctx["ECHOSTRUCT"] = ctx["IMPORTSTRUCT"];
        // The received rows stay; the import structure is appended as a new last row.
        ctx.rows("RFCTABLE").push_back(ctx["IMPORTSTRUCT"]);
        ctx.set("RESPTEXT", respText(ctx));
      });

  ModuleBuilder(s, "RFC_GET_ATTRIBUTES", "SRFC", "Attributes of the RFC connection")
      .exp("ATTRIBUTES", "RFCATTRIBS", "Connection attributes")
      .install([](CallContext& ctx) {
        const SystemInfo& info = ctx.system().info();
        const TypeDesc& t = ctx.typeOf("ATTRIBUTES");
        Value& a = ctx["ATTRIBUTES"];
        auto set = [&](const char* field, const std::string& text) {
          a[field] = parseValue(*t.components[static_cast<size_t>(t.find(field))].type, text, TextForm::Plain);
        };
        set("DEST", info.host + "_" + info.sysid + "_" + info.instance);
        set("HOST", info.host);
        set("SYSNR", info.instance);
        set("SYSID", info.sysid);
        set("CLIENT", ctx.logon().client);
        set("USER", ctx.logon().user);
        set("LANGUAGE", ctx.logon().language);
        set("ISO_LANGUAGE", ctx.system().users().languageIso(ctx.logon().language).value_or(""));
        set("CODEPAGE", "4103");
        set("RFC_ROLE", "S");
        set("TYPE", "3");
        set("REL", info.release.substr(0, 4));
        set("KERNEL_REL", info.kernel);
      });
}

}  // namespace vsim
