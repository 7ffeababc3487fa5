// The simulator's own test modules: every type in every direction, exceptions on request,
// waiting, generated rows, and a counter that lives in the ABAP session.
#include <cmath>
#include <limits>

#include "engine/convert.h"
#include "engine/module_builder.h"

namespace vsim {

namespace {

struct ScalarParam {
  const char* suffix;
  const char* type;
};
const ScalarParam kScalars[] = {{"CHAR", "C10"},  {"NUMC", "N8"},     {"DATE", "D"},        {"TIME", "T"},
                                {"RAW", "X4"},    {"PACKED", "P8.2"}, {"FLOAT", "F"},       {"INT", "I"},
                                {"INT1", "INT1"}, {"INT2", "INT2"},   {"STRING", "STRING"}, {"XSTRING", "XSTRING"}};

// The change that Z_VSIM_TYPES applies to a CHANGING value, so that a client sees it was processed.
Value changed(const TypeDesc& t, const Value& v) {
  switch (t.kind) {
    case Kind::Char:
    case Kind::String: return Value(toUpper(v.text()));
    case Kind::Numc: {
      std::string n = v.text();
      for (int i = static_cast<int>(n.size()) - 1; i >= 0; --i) {
        if (n[static_cast<size_t>(i)] == '9') {
          n[static_cast<size_t>(i)] = '0';
        } else {
          ++n[static_cast<size_t>(i)];
          break;
        }
      }
      return Value(n);
    }
    case Kind::Date: return Value(v.text() == "00000000" ? v.text() : addDays(v.text(), 1));
    case Kind::Time: {
      const std::string& s = v.text();
      if (s.size() != 6) return v;
      int secs =
          (std::stoi(s.substr(0, 2)) * 3600 + std::stoi(s.substr(2, 2)) * 60 + std::stoi(s.substr(4, 2)) + 1) % 86400;
      char buf[32];
      std::snprintf(buf, sizeof buf, "%02d%02d%02d", secs / 3600, secs / 60 % 60, secs % 60);
      return Value(buf);
    }
    case Kind::Raw:
    case Kind::XString: {
      std::string b = v.text();
      for (auto& c : b) c = static_cast<char>(~static_cast<unsigned char>(c));
      return Value(b);
    }
    case Kind::Packed: {
      try {
        const std::int64_t scaled = packedToScaled(v.text(), t.decimals);
        std::int64_t one = 1;
        for (int i = 0; i < t.decimals; ++i) one *= 10;
        return Value(packedCanonical(packedFromScaled(scaled + one, t.decimals), t.length, t.decimals));
      } catch (const ConversionError&) {
        return v;
      }
    }
    case Kind::Float: {
      const double d = v.real() * 2;
      return std::isfinite(d) ? Value(d) : v;
    }
    case Kind::Int: {
      const std::int64_t n = v.integer();
      return Value(n == std::numeric_limits<std::int32_t>::max()
                       ? std::int64_t{std::numeric_limits<std::int32_t>::min()}
                       : n + 1);
    }
    case Kind::Int1: return Value((v.integer() + 1) % 256);
    case Kind::Int2: return Value(v.integer() == 32767 ? std::int64_t{-32768} : v.integer() + 1);
    case Kind::Int8:
      return Value(v.integer() == std::numeric_limits<std::int64_t>::max() ? std::numeric_limits<std::int64_t>::min()
                                                                           : v.integer() + 1);
    case Kind::DecF16:
    case Kind::DecF34:
      if (v.text() == "0") return v;
      return Value(v.text()[0] == '-' ? v.text().substr(1) : "-" + v.text());
    case Kind::UtcLong: return v;
    case Kind::Struct: {
      Value out = v;
      for (size_t i = 0; i < t.components.size(); ++i) out.items()[i] = changed(*t.components[i].type, v.items()[i]);
      return out;
    }
    case Kind::Table: {
      Value out(Value::List{});
      for (const Value& r : v.items()) out.items().push_back(changed(*t.row, r));
      return out;
    }
  }
  return v;
}

}  // namespace

void installTestModules(System& s) {
  {
    ModuleBuilder b(s, "Z_VSIM_TYPES", "ZVSIM", "Every ABAP type in every direction");
    for (const auto& p : kScalars)
      b.imp(std::string("IV_") + p.suffix, p.type, true, {}, std::string("Importing ") + p.suffix);
    b.imp("IS_FLAT", "ZVSIM_FLAT", true).imp("IT_FLAT", "ZVSIM_FLAT_TT", true).imp("IS_DEEP", "ZVSIM_DEEP", true);
    for (const auto& p : kScalars) b.exp(std::string("EV_") + p.suffix, p.type, std::string("Echo of IV_") + p.suffix);
    b.exp("ES_FLAT", "ZVSIM_FLAT", "Echo of IS_FLAT").exp("ET_FLAT", "ZVSIM_FLAT_TT", "Echo of IT_FLAT");
    b.exp("ES_DEEP", "ZVSIM_DEEP", "Echo of IS_DEEP");
    for (const auto& p : kScalars)
      b.chg(std::string("CV_") + p.suffix, p.type, true, {}, std::string("Changed ") + p.suffix);
    b.chg("CS_FLAT", "ZVSIM_FLAT", true).chg("CT_FLAT", "ZVSIM_FLAT_TT", true);
    b.tab("TT_FLAT", "ZVSIM_FLAT", true, "Rows changed, then IS_FLAT appended");
    b.install([](CallContext& ctx) {
      for (const auto& p : kScalars) {
        const std::string suffix = p.suffix;
        ctx["EV_" + suffix] = ctx["IV_" + suffix];
        ctx["CV_" + suffix] = changed(ctx.typeOf("CV_" + suffix), ctx["CV_" + suffix]);
      }
      ctx["ES_FLAT"] = ctx["IS_FLAT"];
      ctx["ET_FLAT"] = ctx["IT_FLAT"];
      ctx["ES_DEEP"] = ctx["IS_DEEP"];
      ctx["CS_FLAT"] = changed(ctx.typeOf("CS_FLAT"), ctx["CS_FLAT"]);
      ctx["CT_FLAT"] = changed(ctx.typeOf("CT_FLAT"), ctx["CT_FLAT"]);
      ctx["TT_FLAT"] = changed(ctx.typeOf("TT_FLAT"), ctx["TT_FLAT"]);
      ctx.rows("TT_FLAT").push_back(ctx["IS_FLAT"]);
    });
  }

  {
    // The types that newer releases added; a client meets here a type it may not know.
    const ScalarParam newer[] = {
        {"INT8", "INT8"}, {"DECF16", "DECFLOAT16"}, {"DECF34", "DECFLOAT34"}, {"UTCLONG", "UTCLONG"}};
    ModuleBuilder b(s, "Z_VSIM_NEW_TYPES", "ZVSIM", "Types of newer releases in every direction");
    for (const auto& p : newer)
      b.imp(std::string("IV_") + p.suffix, p.type, true, {}, std::string("Importing ") + p.suffix);
    for (const auto& p : newer) b.exp(std::string("EV_") + p.suffix, p.type, std::string("Echo of IV_") + p.suffix);
    for (const auto& p : newer)
      b.chg(std::string("CV_") + p.suffix, p.type, true, {}, std::string("Changed ") + p.suffix);
    b.install([newer](CallContext& ctx) {
      for (const auto& p : newer) {
        const std::string suffix = p.suffix;
        ctx["EV_" + suffix] = ctx["IV_" + suffix];
        ctx["CV_" + suffix] = changed(ctx.typeOf("CV_" + suffix), ctx["CV_" + suffix]);
      }
    });
  }

  ModuleBuilder(s, "Z_VSIM_RAISE", "ZVSIM", "Raises an exception or sends a message on request")
      .imp("EXCEPTION", "C30", true, {}, "Exception to raise")
      .imp("MESSAGE_ID", "SYMSGID", true, {}, "Message class")
      .imp("MESSAGE_TYPE", "SYST-MSGTY", true, "'E'", "Message type")
      .imp("MESSAGE_NUMBER", "SYMSGNO", true, {}, "Message number")
      .imp("MESSAGE_TEXT", "BAPI_MSG", true, {}, "Message text, & and &1 to &4 take the variables")
      .imp("MESSAGE_V1", "SYMSGV", true)
      .imp("MESSAGE_V2", "SYMSGV", true)
      .imp("MESSAGE_V3", "SYMSGV", true)
      .imp("MESSAGE_V4", "SYMSGV", true)
      .imp("RUNTIME_ERROR", "C30", true, {}, "Name of a runtime error to end with")
      .exc("NOT_FOUND", "Object not found")
      .exc("INVALID_INPUT", "Input is not valid")
      .exc("NO_AUTHORITY", "No authorization")
      .exc("FAILED", "Processing failed")
      .install([](CallContext& ctx) {
        const std::string dump = toUpper(ctx.text("RUNTIME_ERROR"));
        if (!dump.empty()) throw SystemFailure(dump, "Runtime error " + dump + " occurred");
        AbapMessage m;
        m.id = ctx.text("MESSAGE_ID");
        m.type = toUpper(ctx.text("MESSAGE_TYPE"));
        if (m.type.empty()) m.type = "E";
        m.number = ctx.text("MESSAGE_NUMBER");
        m.vars = {ctx.text("MESSAGE_V1"), ctx.text("MESSAGE_V2"), ctx.text("MESSAGE_V3"), ctx.text("MESSAGE_V4")};
        const std::string pattern = ctx.text("MESSAGE_TEXT");
        m.text = messageText(pattern, m.vars);
        if (m.text.empty() && !m.id.empty()) m.text = m.id + " " + m.number + " " + m.vars[0];
        const bool hasMessage = !pattern.empty() || !m.id.empty();
        const std::string exception = toUpper(ctx.text("EXCEPTION"));
        if (!exception.empty()) {
          if (hasMessage) ctx.raise(exception, m);
          ctx.raise(exception);
        }
        if (!hasMessage) return;
        if (m.type == "X") throw SystemFailure("MESSAGE_TYPE_X", m.text, m);
        if (m.type == "E" || m.type == "A") throw SystemFailure("ERROR_MESSAGE_STATE", m.text, m);
      });

  ModuleBuilder(s, "Z_VSIM_WAIT", "ZVSIM", "Waits a given time")
      .imp("MILLISECONDS", "I", false, {}, "Time to wait")
      .exp("WAITED", "I", "Milliseconds waited")
      .install([](CallContext& ctx) {
        const std::int64_t ms = std::max<std::int64_t>(ctx.integer("MILLISECONDS"), 0);
        const auto start = std::chrono::steady_clock::now();
        if (!ctx.system().sleepFor(ms)) throw SystemFailure("SYSTEM_SHUTDOWN", "The system is shutting down");
        const auto waited =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        ctx["WAITED"] = Value(static_cast<std::int64_t>(waited.count()));
      });

  ModuleBuilder(s, "Z_VSIM_ROWS", "ZVSIM", "Returns a table of a requested number of rows")
      .imp("ROW_COUNT", "I", false, {}, "Number of rows")
      .imp("TEXT_PREFIX", "C20", true, "'Row'", "Text in front of the row number")
      .exp("COUNT", "I", "Number of rows returned")
      .tab("ROWS", "ZVSIM_ROW", false, "Generated rows")
      .exc("INVALID_COUNT", "The number of rows is negative or too large")
      .install([](CallContext& ctx) {
        const std::int64_t n = ctx.integer("ROW_COUNT");
        if (n < 0 || n > ctx.system().options().maxGeneratedRows) ctx.raise("INVALID_COUNT");
        const std::string prefix = ctx.text("TEXT_PREFIX");
        auto& rows = ctx.rows("ROWS");
        rows.clear();
        rows.reserve(static_cast<size_t>(n));
        const TypeDesc& rt = *ctx.typeOf("ROWS").row;
        const Value initial = initialValue(rt);
        const std::int64_t base = daysFromCivil(2025, 1, 1);
        for (std::int64_t i = 0; i < n; ++i) {
          Value r = initial;
          auto& it = r.items();
          it[0] = Value(i + 1);
          it[1] = Value(utf8Truncate(prefix + " " + std::to_string(i + 1), 40));
          it[2] = Value(packedFromScaled((i + 1) * 125, 2));
          it[3] = Value(civilFromDays(base + i % 3650));
          rows.push_back(std::move(r));
        }
        ctx["COUNT"] = Value(n);
      });

  ModuleBuilder(s, "Z_VSIM_COUNTER", "ZVSIM", "Counter kept in the ABAP session")
      .imp("STEP", "I", true, "1", "Amount to add")
      .exp("VALUE", "I", "Value after adding")
      .exp("CALLS", "I", "Calls in this session")
      .install([](CallContext& ctx) {
        auto& mem = ctx.session().memory();
        const std::int64_t value = std::atoll(mem["counter"].c_str()) + ctx.integer("STEP");
        const std::int64_t calls = std::atoll(mem["calls"].c_str()) + 1;
        mem["counter"] = std::to_string(value);
        mem["calls"] = std::to_string(calls);
        ctx["VALUE"] = Value(value);
        ctx["CALLS"] = Value(calls);
      });
}

}  // namespace vsim
