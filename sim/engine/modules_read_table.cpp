// RFC_READ_TABLE: rows of a database table as fixed-width text lines.
#include "engine/convert.h"
#include "engine/module_builder.h"
#include "engine/where.h"

namespace vsim {

namespace {

constexpr int kLineLength = 512;

struct OutField {
  int index;
  int offset;
  int length;
};

}  // namespace

void installReadTable(System& s) {
  ModuleBuilder(s, "RFC_READ_TABLE", "SDTX", "External access to R/3 tables via RFC")
      .imp("QUERY_TABLE", "DD02L-TABNAME", false, {}, "Table read")
      .imp("DELIMITER", "SONV-FLAG", true, "SPACE", "Sign for indicating field limits in DATA")
      .imp("NO_DATA", "SONV-FLAG", true, "SPACE", "If <> SPACE, only FIELDS is filled")
      .imp("ROWSKIPS", "SOID-ACCNT", true, "0", "Rows skipped")
      .imp("ROWCOUNT", "SOID-ACCNT", true, "0", "Rows read, 0 for all")
      .tab("OPTIONS", "RFC_DB_OPT", true, "Selection entries, \"WHERE clauses\" (in)")
      .tab("FIELDS", "RFC_DB_FLD", true, "Names (in) and structure (out) of fields read")
      .tab("DATA", "TAB512", false, "Data read (out)")
      .exc("TABLE_NOT_AVAILABLE", "Table is not available")
      .exc("TABLE_WITHOUT_DATA", "Table has no data (structure)")
      .exc("OPTION_NOT_VALID", "Selection criteria are not valid")
      .exc("FIELD_NOT_VALID", "Field is not valid")
      .exc("NOT_AUTHORIZED", "No authorization to display the table")
      .exc("DATA_BUFFER_EXCEEDED", "Selected fields do not fit into the 512-character row")
      .install([](CallContext& ctx) {
        System& sys = ctx.system();
        const std::string name = toUpper(trim(ctx.text("QUERY_TABLE")));
        const DbTable* table = sys.tables().find(name);
        if (!table) {
          TypePtr t = sys.dictionary().find(name);
          ctx.raise(t && t->kind == Kind::Struct ? "TABLE_WITHOUT_DATA" : "TABLE_NOT_AVAILABLE");
        }
        if (table->restricted) ctx.raise("NOT_AUTHORIZED");
        const TypeDesc& rowType = *table->type;
        const std::string delimiter = ctx.text("DELIMITER");
        const bool hasDelimiter = !delimiter.empty();
        const bool noData = !ctx.text("NO_DATA").empty();

        // The fields asked for, or all of them.
        std::vector<int> wanted;
        for (const Value& r : ctx.rows("FIELDS")) {
          const TypeDesc& ft = *ctx.typeOf("FIELDS").row;
          const std::string field = toUpper(trim(r.at(ft, "FIELDNAME").text()));
          if (field.empty()) continue;
          const int i = rowType.find(field);
          if (i < 0) ctx.raise("FIELD_NOT_VALID");
          wanted.push_back(i);
        }
        if (wanted.empty())
          for (size_t i = 0; i < rowType.components.size(); ++i) wanted.push_back(static_cast<int>(i));

        std::vector<OutField> out;
        int cursor = 0;
        for (int i : wanted) {
          const TypeDesc& type = *rowType.components[static_cast<size_t>(i)].type;
          // A RAW field is written as hexadecimal text: two characters per byte.
          const int len = type.exid() == 'X' ? 2 * type.ddicLength() : type.ddicLength();
          out.push_back({i, cursor, len});
          cursor += len;
          if (hasDelimiter) cursor += 1;
          if (cursor > kLineLength && !noData) ctx.raise("DATA_BUFFER_EXCEEDED");
        }

        std::string where;
        for (const Value& r : ctx.rows("OPTIONS")) {
          where += r.items().empty() ? std::string() : r.items()[0].text();
          where += ' ';
        }
        WhereClause condition;
        try {
          condition = WhereClause::compile(where, rowType);
        } catch (const WhereError& e) {
          ctx.raise("OPTION_NOT_VALID",
                    AbapMessage{"SAPLSDTX", "E", "000", std::string("Invalid WHERE condition: ") + e.what(), {}});
        }

        auto& fields = ctx.rows("FIELDS");
        fields.clear();
        for (const OutField& f : out) {
          const Component& c = rowType.components[static_cast<size_t>(f.index)];
          Value& r = ctx.appendRow("FIELDS");
          r["FIELDNAME"] = Value(c.name);
          r["OFFSET"] =
              parseValue(*ctx.typeOf("FIELDS").row->components[1].type, std::to_string(f.offset), TextForm::Plain);
          r["LENGTH"] =
              parseValue(*ctx.typeOf("FIELDS").row->components[2].type, std::to_string(f.length), TextForm::Plain);
          r["TYPE"] = Value(std::string(1, c.type->exid()));
          r["FIELDTEXT"] = Value(utf8Truncate(c.text, 60));
        }
        auto& data = ctx.rows("DATA");
        data.clear();
        if (noData) return;

        std::int64_t skip = std::max<std::int64_t>(ctx.integer("ROWSKIPS"), 0);
        const std::int64_t count = ctx.integer("ROWCOUNT");
        const int mandt = table->clientDependent ? rowType.find("MANDT") : -1;
        const std::string& client = ctx.logon().client;
        const TypeDesc& dataRow = *ctx.typeOf("DATA").row;
        std::string line;
        for (const Value& row : table->rows) {
          if (mandt >= 0 && row.items()[static_cast<size_t>(mandt)].text() != client) continue;
          if (!condition.matches(row)) continue;
          if (skip > 0) {
            --skip;
            continue;
          }
          line.clear();
          for (size_t k = 0; k < out.size(); ++k) {
            const OutField& f = out[k];
            line += formatWrite(*rowType.components[static_cast<size_t>(f.index)].type,
                                row.items()[static_cast<size_t>(f.index)], f.length);
            if (hasDelimiter && k + 1 < out.size()) line += delimiter;
          }
          Value wa = initialValue(dataRow);
          wa.items()[0] = Value(std::string(trimRight(line)));
          data.push_back(std::move(wa));
          if (count > 0 && static_cast<std::int64_t>(data.size()) >= count) break;
        }
      });
}

}  // namespace vsim
