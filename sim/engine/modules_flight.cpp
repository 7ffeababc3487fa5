// BAPI_FLIGHT_GETLIST over the flight model (SFLIGHT, SPFLI, SCARR).
#include <unordered_map>

#include "engine/convert.h"
#include "engine/module_builder.h"

namespace vsim {

namespace {

struct DateRange {
  bool include;
  std::string option, low, high;
  bool matches(const std::string& d) const {
    if (option == "EQ") return d == low;
    if (option == "NE") return d != low;
    if (option == "GT") return d > low;
    if (option == "GE") return d >= low;
    if (option == "LT") return d < low;
    if (option == "LE") return d <= low;
    if (option == "BT") return d >= low && d <= high;
    if (option == "NB") return d < low || d > high;
    return false;
  }
};

bool sameText(const std::string& a, const std::string& b) { return toUpper(trim(a)) == toUpper(trim(b)); }

}  // namespace

void installFlightModules(System& s) {
  ModuleBuilder(s, "BAPI_FLIGHT_GETLIST", "BC_BOR", "Find list of flights")
      .imp("AIRLINE", "BAPISFLKEY-AIRLINEID", true, {}, "Airline")
      .imp("DESTINATION_FROM", "BAPISFLDST", true, {}, "Departure airport")
      .imp("DESTINATION_TO", "BAPISFLDST", true, {}, "Destination airport")
      .imp("MAX_ROWS", "BAPISFLAUX-BAPIMAXROW", true, {}, "Maximum number of lines of hits")
      .tab("DATE_RANGE", "BAPISFLDRA", true, "Selection range for flight date")
      .tab("EXTENSION_IN", "BAPIPAREX", true, "Import customer enhancements")
      .tab("FLIGHT_LIST", "BAPISFLDAT", true, "List of flights")
      .tab("EXTENSION_OUT", "BAPIPAREX", true, "Export customer enhancements")
      .tab("RETURN", "BAPIRET2", true, "Return messages")
      .install([](CallContext& ctx) {
        System& sys = ctx.system();
        const std::string client = ctx.logon().client;
        const DbTable& sflight = *sys.tables().find("SFLIGHT");
        const DbTable& spfli = *sys.tables().find("SPFLI");
        const DbTable& scarr = *sys.tables().find("SCARR");
        const DbTable& tcurc = *sys.tables().find("TCURC");
        const TypeDesc &ft = *sflight.type, &pt = *spfli.type, &ct = *scarr.type, &kt = *tcurc.type;

        auto addReturn = [&](const char* type, const char* number, const std::string& text) {
          Value& r = ctx.appendRow("RETURN");
          r["TYPE"] = Value(type);
          r["ID"] = Value("BC_IBF");
          r["NUMBER"] = Value(number);
          r["MESSAGE"] = Value(text);
          r["SYSTEM"] = Value(sys.info().sysid + "CLNT" + client);
        };

        std::vector<DateRange> ranges;
        for (const Value& r : ctx.rows("DATE_RANGE")) {
          const TypeDesc& rt = *ctx.typeOf("DATE_RANGE").row;
          DateRange d{r.at(rt, "SIGN").text() != "E", toUpper(r.at(rt, "OPTION").text()), r.at(rt, "LOW").text(),
                      r.at(rt, "HIGH").text()};
          static const char* options[] = {"EQ", "NE", "GT", "GE", "LT", "LE", "BT", "NB"};
          bool known = false;
          for (const char* o : options) known = known || d.option == o;
          if (!known) {
            addReturn("E", "010", "Selection option " + d.option + " is not supported for flight dates");
            return;
          }
          ranges.push_back(d);
        }
        const bool anyInclude = std::any_of(ranges.begin(), ranges.end(), [](const DateRange& d) { return d.include; });

        std::unordered_map<std::string, const Value*> connections, airlines;
        for (const Value& c : spfli.rows)
          if (c.at(pt, "MANDT").text() == client)
            connections[c.at(pt, "CARRID").text() + c.at(pt, "CONNID").text()] = &c;
        for (const Value& a : scarr.rows)
          if (a.at(ct, "MANDT").text() == client) airlines[a.at(ct, "CARRID").text()] = &a;
        std::unordered_map<std::string, std::string> iso;
        for (const Value& c : tcurc.rows)
          if (c.at(kt, "MANDT").text() == client) iso[c.at(kt, "WAERS").text()] = c.at(kt, "ISOCD").text();

        const std::string airline = toUpper(ctx.text("AIRLINE"));
        const TypeDesc& dt = ctx.typeOf("DESTINATION_FROM");
        const Value& from = ctx["DESTINATION_FROM"];
        const Value& to = ctx["DESTINATION_TO"];
        auto place = [&](const Value& dest, const Value& conn, const char* airport, const char* city,
                         const char* country) {
          const std::string& a = dest.at(dt, "AIRPORTID").text();
          const std::string& c = dest.at(dt, "CITY").text();
          const std::string& k = dest.at(dt, "COUNTR").text();
          return (a.empty() || sameText(a, conn.at(pt, airport).text())) &&
                 (c.empty() || sameText(c, conn.at(pt, city).text())) &&
                 (k.empty() || sameText(k, conn.at(pt, country).text()));
        };
        const std::int64_t maxRows = ctx.integer("MAX_ROWS");
        auto& list = ctx.rows("FLIGHT_LIST");
        for (const Value& f : sflight.rows) {
          if (f.at(ft, "MANDT").text() != client) continue;
          const std::string& carrid = f.at(ft, "CARRID").text();
          if (!airline.empty() && carrid != airline) continue;
          auto conn = connections.find(carrid + f.at(ft, "CONNID").text());
          if (conn == connections.end()) continue;
          const Value& c = *conn->second;
          if (!place(from, c, "AIRPFROM", "CITYFROM", "COUNTRYFR") || !place(to, c, "AIRPTO", "CITYTO", "COUNTRYTO"))
            continue;
          const std::string& date = f.at(ft, "FLDATE").text();
          bool ok = !anyInclude;
          for (const auto& r : ranges)
            if (r.include && r.matches(date)) ok = true;
          for (const auto& r : ranges)
            if (!r.include && r.matches(date)) ok = false;
          if (!ok) continue;
          Value& row = ctx.appendRow("FLIGHT_LIST");
          row["AIRLINEID"] = Value(carrid);
          auto a = airlines.find(carrid);
          if (a != airlines.end()) row["AIRLINE"] = a->second->at(ct, "CARRNAME");
          row["CONNECTID"] = f.at(ft, "CONNID");
          row["FLIGHTDATE"] = Value(date);
          row["AIRPORTFR"] = c.at(pt, "AIRPFROM");
          row["CITYFROM"] = c.at(pt, "CITYFROM");
          row["AIRPORTTO"] = c.at(pt, "AIRPTO");
          row["CITYTO"] = c.at(pt, "CITYTO");
          row["DEPTIME"] = c.at(pt, "DEPTIME");
          row["ARRTIME"] = c.at(pt, "ARRTIME");
          row["ARRDATE"] = Value(addDays(date, c.at(pt, "PERIOD").integer()));
          row["PRICE"] = Value(packedCanonical(f.at(ft, "PRICE").text(), 12, 4));
          const std::string& currency = f.at(ft, "CURRENCY").text();
          row["CURR"] = Value(currency);
          auto i = iso.find(currency);
          row["CURR_ISO"] = Value(i == iso.end() ? currency.substr(0, 3) : i->second);
          if (maxRows > 0 && static_cast<std::int64_t>(list.size()) >= maxRows) break;
        }
        if (list.empty()) addReturn("I", "055", "No flights found for the selection");
      });
}

}  // namespace vsim
