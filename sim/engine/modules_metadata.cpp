// RFC_GET_FUNCTION_INTERFACE, RFC_GET_UNICODE_STRUCTURE, RFC_GET_NAMETAB.
#include "engine/convert.h"
#include "engine/module_builder.h"

namespace vsim {

namespace {

// Sets a component of a row or structure from plain text.
void put(Value& row, const std::string& field, const std::string& text) {
  const TypeDesc& t = *row.type();
  const int i = t.find(field);
  row.items()[static_cast<size_t>(i)] = parseValue(*t.components[static_cast<size_t>(i)].type, text, TextForm::Plain);
}
void put(Value& row, const std::string& field, std::int64_t n) { row[field] = Value(n); }

// TABNAME and FIELDNAME of a parameter from the reference it was declared with.
std::pair<std::string, std::string> dictionaryNames(const Parameter& p) {
  const std::string& ref = p.typeRef;
  const size_t dash = ref.find('-');
  if (dash != std::string::npos && dash > 0) {
    std::string table = ref.substr(0, dash);
    if (table == "SY") table = "SYST";
    return {table, ref.substr(dash + 1)};
  }
  return {ref, ""};
}

void flatten(CallContext& ctx, const TypeDesc& s, const std::string& structName, const std::string& prefix,
             const std::array<int, 3>& base, bool skipB2, bool skipB4, int& position) {
  for (const auto& c : s.components) {
    Value& row = ctx.appendRow("FIELDS");
    const TypeDesc& t = *c.type;
    put(row, "TABNAME", structName);
    put(row, "FIELDNAME", prefix + c.name);
    put(row, "POSITION", ++position);
    put(row, "EXID", std::string(1, t.exid()));
    put(row, "DECIMALS", std::int64_t{t.kind == Kind::Packed || t.kind == Kind::Float ? t.decimals : 0});
    put(row, "OFFSET_B1", std::int64_t{base[B1] + c.offset[B1]});
    put(row, "LENGTH_B1", std::int64_t{t.size[B1]});
    if (!skipB2) {
      put(row, "OFFSET_B2", std::int64_t{base[B2] + c.offset[B2]});
      put(row, "LENGTH_B2", std::int64_t{t.size[B2]});
    }
    if (!skipB4) {
      put(row, "OFFSET_B4", std::int64_t{base[B4] + c.offset[B4]});
      put(row, "LENGTH_B4", std::int64_t{t.size[B4]});
    }
    if (t.kind == Kind::Struct) {
      std::array<int, 3> inner{};
      for (int l = 0; l < 3; ++l)
        inner[static_cast<size_t>(l)] = base[static_cast<size_t>(l)] + c.offset[static_cast<size_t>(l)];
      flatten(ctx, t, structName, prefix + c.name + "-", inner, skipB2, skipB4, position);
    }
  }
}

}  // namespace

void installMetadataModules(System& s) {
  ModuleBuilder(s, "RFC_GET_FUNCTION_INTERFACE", "RFC1", "Interface description of a function module")
      .imp("FUNCNAME", "RS38L_FNAM", false, {}, "Name of the function module")
      .imp("LANGUAGE", "SY-LANGU", true, "SY-LANGU", "Language of the parameter texts")
      .imp("NONE_UNICODE_LENGTH", "CHAR1", true, "SPACE", "Lengths of a non-Unicode system")
      .exp("REMOTE_CALL", "CHAR1", "Function module can be called remotely")
      .exp("UPDATE_TASK", "CHAR1", "Function module is an update module")
      .exp("REMOTE_BASXML_SUPPORTED", "CHAR1", "Function module supports basXML")
      .tab("PARAMS", "RFC_FUNINT", false, "Parameters and exceptions")
      .tab("RESUMABLE_EXCEPTIONS", "RSEXC", true, "Resumable exceptions")
      .exc("FU_NOT_FOUND", "Function module does not exist")
      .exc("NAMETAB_FAULT", "Error in the nametab of a parameter type")
      .install([](CallContext& ctx) {
        const std::string name = toUpper(ctx.text("FUNCNAME"));
        FunctionPtr fm = ctx.system().functions().find(name);
        if (!fm) {
          AbapMessage m{"FL", "E", "046", "Function module \"" + name + "\" not found", {name, "", "", ""}};
          ctx.raise("FU_NOT_FOUND", m);
        }
        const bool oneByte = ctx.text("NONE_UNICODE_LENGTH") == "X";
        const Layout layout = oneByte ? B1 : B2;
        int position = 0;
        for (const Parameter& p : fm->params) {
          Value& row = ctx.appendRow("PARAMS");
          const TypeDesc& t = p.direction == Direction::Tables ? *p.type->row : *p.type;
          auto [tab, field] = dictionaryNames(p);
          put(row, "PARAMCLASS", std::string(1, paramClass(p.direction)));
          put(row, "PARAMETER", p.name);
          put(row, "TABNAME", tab);
          put(row, "FIELDNAME", field);
          put(row, "EXID", std::string(1, t.exid()));
          put(row, "POSITION", ++position);
          put(row, "OFFSET", std::int64_t{0});
          put(row, "INTLENGTH", std::int64_t{t.size[layout]});
          put(row, "DECIMALS", std::int64_t{t.kind == Kind::Packed || t.kind == Kind::Float ? t.decimals : 0});
          put(row, "DEFAULT", p.defaultValue);
          put(row, "PARAMTEXT", p.text);
          put(row, "OPTIONAL", p.optional ? "X" : "");
        }
        for (const ExceptionDef& e : fm->exceptions) {
          Value& row = ctx.appendRow("PARAMS");
          put(row, "PARAMCLASS", "X");
          put(row, "PARAMETER", e.name);
          put(row, "POSITION", ++position);
          put(row, "PARAMTEXT", e.text);
        }
        ctx.set("REMOTE_CALL", "R");
      });

  ModuleBuilder(s, "RFC_GET_UNICODE_STRUCTURE", "RFCH", "Field layout of a structure in all character widths")
      .imp("TABNAME", "DD02L-TABNAME", false, {}, "Name of the structure or table")
      .imp("ALLOW_HALF_DEEP", "CHAR1", true, "SPACE", "Strings and nested tables are listed")
      .imp("SKIP_UTF16_INFO", "CHAR1", true, "SPACE", "Leave out the two-byte layout")
      .imp("SKIP_UCS_4_INFO", "CHAR1", true, "SPACE", "Leave out the four-byte layout")
      .exp("B1_TABLENGTH", "I", "Length with one byte per character")
      .exp("B2_TABLENGTH", "I", "Length with two bytes per character")
      .exp("B4_TABLENGTH", "I", "Length with four bytes per character")
      .exp("CHAR_LENGTH", "I", "Bytes per character of the system")
      .tab("FIELDS", "RFC_FLDS_U", false, "Fields of the structure")
      .exc("ENQUEUE_ERROR", "Nametab could not be locked")
      .exc("NOT_FOUND", "Structure not found")
      .exc("PROGRAM_ERROR", "Structure cannot be described flat")
      .install([](CallContext& ctx) {
        const std::string name = toUpper(ctx.text("TABNAME"));
        TypePtr t = ctx.system().dictionary().find(name);
        if (t && t->kind == Kind::Table && t->row->kind == Kind::Struct) t = t->row;
        if (!t || t->kind != Kind::Struct) ctx.raise("NOT_FOUND");
        if (t->deep && ctx.text("ALLOW_HALF_DEEP") != "X") ctx.raise("PROGRAM_ERROR");
        const bool skipB2 = ctx.text("SKIP_UTF16_INFO") == "X", skipB4 = ctx.text("SKIP_UCS_4_INFO") == "X";
        int position = 0;
        flatten(ctx, *t, name, "", {0, 0, 0}, skipB2, skipB4, position);
        ctx["B1_TABLENGTH"] = Value(std::int64_t{t->size[B1]});
        ctx["B2_TABLENGTH"] = Value(std::int64_t{skipB2 ? 0 : t->size[B2]});
        ctx["B4_TABLENGTH"] = Value(std::int64_t{skipB4 ? 0 : t->size[B4]});
        ctx["CHAR_LENGTH"] = Value(std::int64_t{2});
      });

  ModuleBuilder(s, "RFC_GET_NAMETAB", "SDIFRUNTIME", "Runtime description of a table, structure or table type")
      .imp("TABNAME", "X030L-TABNAME", false, {}, "Name of the table, structure or table type")
      .exp("HEADER", "X030L", "Nametab header")
      .tab("NAMETAB", "X031L", true, "Fields")
      .exc("TABLE_HAS_NO_FIELDS", "Table has no fields")
      .exc("TABLE_NOT_ACTIV", "Table is not active")
      .install([](CallContext& ctx) {
        const std::string name = toUpper(ctx.text("TABNAME"));
        TypePtr t = ctx.system().dictionary().find(name);
        if (!t || t->isScalar()) ctx.raise("TABLE_NOT_ACTIV");
        const DbTable* db = ctx.system().tables().find(name);
        const TypeDesc* rowType = t->kind == Kind::Table ? t->row.get() : t.get();
        Value& h = ctx["HEADER"];
        put(h, "TABNAME", name);
        put(h, "TABTYPE", t->kind == Kind::Table ? "L" : (db ? "T" : "S"));
        put(h, "TABFORM", t->kind == Kind::Table ? "" : (db ? "T" : "J"));
        if (t->kind == Kind::Table)
          put(h, "REFNAME", t->row->name.empty() ? std::string(1, t->row->exid()) : t->row->name);
        std::uint64_t hash = 1469598103934665603ULL;
        for (char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
        std::string uuid;
        for (int i = 0; i < 16; ++i)
          uuid += static_cast<char>((hash >> ((i % 8) * 8)) & 0xFF) ^ static_cast<char>(i * 37);
        h["UUID"] = Value(uuid);
        put(h, "UNIFLAG", "X");
        if (rowType->kind != Kind::Struct) return;
        if (rowType->components.empty()) ctx.raise("TABLE_HAS_NO_FIELDS");
        int keyLen = 0;
        const int keys = db ? db->keyFields : 0;
        for (size_t i = 0; i < rowType->components.size(); ++i) {
          const Component& c = rowType->components[i];
          Value& row = ctx.appendRow("NAMETAB");
          put(row, "TABNAME", name);
          put(row, "FIELDNAME", c.name);
          put(row, "DTELNAME", c.element);
          put(row, "POSITION", static_cast<std::int64_t>(i + 1));
          put(row, "OFFSET", std::int64_t{c.offset[B2]});
          put(row, "DBLENGTH", std::int64_t{c.type->size[B2]});
          put(row, "DECIMALS", std::int64_t{c.type->kind == Kind::Packed ? c.type->decimals : 0});
          put(row, "EXID", std::string(1, c.type->exid()));
          put(row, "KEYFLAG", static_cast<int>(i) < keys ? "X" : "");
          if (static_cast<int>(i) < keys) keyLen = c.offset[B2] + c.type->size[B2];
        }
        h["FIELDCOUNT"] = Value(static_cast<std::int64_t>(rowType->components.size()));
        h["KEYCOUNT"] = Value(std::int64_t{keys});
        h["KEYLEN"] = Value(std::int64_t{keyLen});
        h["TABLEN"] = Value(std::int64_t{rowType->size[B2]});
      });
}

}  // namespace vsim
