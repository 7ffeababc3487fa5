// Clients, languages, users and table contents of the standard system, with the flight model.
#include <cstdio>

#include "engine/convert.h"
#include "engine/system.h"

namespace vsim {

namespace {

constexpr std::size_t kStandardFlights = 3120;

DbTable& defineTable(System& s, const std::string& name, const std::vector<Dictionary::Field>& fields, int keys,
                     bool clientDependent, const std::string& text) {
  DbTable t;
  t.name = name;
  t.type = s.dictionary().addStructure(name, fields, text);
  t.keyFields = keys;
  t.clientDependent = clientDependent;
  return s.tables().add(std::move(t));
}

void addRows(DbTable& t, const std::vector<std::vector<std::string>>& rows) {
  for (const auto& r : rows) {
    std::map<std::string, std::string> fields;
    for (size_t i = 0; i < r.size() && i < t.type->components.size(); ++i) fields[t.type->components[i].name] = r[i];
    t.rows.push_back(t.makeRow(fields));
  }
}

struct Connection {
  const char* carrid;
  const char* connid;
  const char* countryfr;
  const char* cityfrom;
  const char* airpfrom;
  const char* countryto;
  const char* cityto;
  const char* airpto;
  int fltime;
  const char* deptime;
  const char* arrtime;
  const char* distance;
  const char* distid;
  int period;
  int basePrice;  // in the airline's currency
};

const Connection kConnections[] = {
    {"AA", "0017", "US", "NEW YORK", "JFK", "US", "SAN FRANCISCO", "SFO", 361, "110000", "140100", "2572", "MI", 0,
     422},
    {"AA", "0064", "US", "SAN FRANCISCO", "SFO", "US", "NEW YORK", "JFK", 321, "090000", "172100", "2572", "MI", 0,
     422},
    {"AZ", "0555", "IT", "ROME", "FCO", "DE", "FRANKFURT", "FRA", 125, "190000", "210500", "845", "MI", 0, 185},
    {"AZ", "0788", "IT", "ROME", "FCO", "JP", "TOKYO", "TYO", 775, "120000", "085500", "6130", "MI", 1, 1030},
    {"AZ", "0789", "JP", "TOKYO", "TYO", "IT", "ROME", "FCO", 940, "114500", "192500", "6130", "MI", 0, 1030},
    {"AZ", "0790", "IT", "ROME", "FCO", "JP", "OSAKA", "KIX", 815, "103500", "081000", "6030", "MI", 1, 1070},
    {"DL", "0106", "US", "NEW YORK", "JFK", "DE", "FRANKFURT", "FRA", 475, "193500", "093000", "3851", "MI", 1, 611},
    {"DL", "1699", "US", "NEW YORK", "JFK", "US", "SAN FRANCISCO", "SFO", 382, "171500", "203700", "2572", "MI", 0,
     422},
    {"DL", "1984", "US", "SAN FRANCISCO", "SFO", "US", "NEW YORK", "JFK", 325, "100000", "182500", "2572", "MI", 0,
     422},
    {"JL", "0407", "JP", "TOKYO", "NRT", "DE", "FRANKFURT", "FRA", 725, "133000", "173500", "9100", "KM", 0, 106136},
    {"JL", "0408", "DE", "FRANKFURT", "FRA", "JP", "TOKYO", "NRT", 675, "202500", "154000", "9100", "KM", 1, 106136},
    {"LH", "0400", "DE", "FRANKFURT", "FRA", "US", "NEW YORK", "JFK", 444, "101000", "113400", "6162", "KM", 0, 666},
    {"LH", "0401", "US", "NEW YORK", "JFK", "DE", "FRANKFURT", "FRA", 435, "183000", "074500", "6162", "KM", 1, 666},
    {"LH", "0402", "DE", "FRANKFURT", "FRA", "US", "NEW YORK", "JFK", 455, "133000", "150500", "6162", "KM", 0, 666},
    {"LH", "2402", "DE", "FRANKFURT", "FRA", "DE", "BERLIN", "SXF", 65, "103000", "113500", "555", "KM", 0, 242},
    {"LH", "2407", "DE", "BERLIN", "TXL", "DE", "FRANKFURT", "FRA", 65, "071000", "081500", "555", "KM", 0, 242},
    {"QF", "0005", "SG", "SINGAPORE", "SIN", "DE", "FRANKFURT", "FRA", 822, "225000", "052300", "10000", "KM", 1, 1629},
    {"QF", "0006", "DE", "FRANKFURT", "FRA", "SG", "SINGAPORE", "SIN", 738, "213500", "155300", "10000", "KM", 1, 1629},
    {"SQ", "0002", "SG", "SINGAPORE", "SIN", "US", "SAN FRANCISCO", "SFO", 1015, "170000", "192000", "8452", "MI", 0,
     1849},
    {"SQ", "0015", "US", "SAN FRANCISCO", "SFO", "SG", "SINGAPORE", "SIN", 1080, "160000", "024500", "8452", "MI", 2,
     1849},
    {"SQ", "0158", "SG", "SINGAPORE", "SIN", "ID", "JAKARTA", "CGK", 105, "152500", "164000", "560", "MI", 0, 375},
    {"SQ", "0988", "SG", "SINGAPORE", "SIN", "JP", "TOKYO", "TYO", 405, "163000", "014500", "3125", "MI", 1, 885},
    {"UA", "0941", "DE", "FRANKFURT", "FRA", "US", "SAN FRANCISCO", "SFO", 690, "143000", "210600", "5685", "MI", 0,
     879},
    {"UA", "3504", "US", "SAN FRANCISCO", "SFO", "DE", "FRANKFURT", "FRA", 655, "150000", "103000", "5685", "MI", 1,
     879},
    {"UA", "3516", "US", "NEW YORK", "JFK", "DE", "FRANKFURT", "FRA", 470, "162000", "054500", "3851", "MI", 1, 611},
    {"UA", "3517", "DE", "FRANKFURT", "FRA", "US", "NEW YORK", "JFK", 500, "104000", "125500", "3851", "MI", 0, 611},
};
constexpr size_t kConnectionCount = sizeof(kConnections) / sizeof(kConnections[0]);

const char* currencyOf(const std::string& carrid) {
  if (carrid == "AA" || carrid == "DL" || carrid == "UA") return "USD";
  if (carrid == "JL") return "JPY";
  if (carrid == "QF") return "AUD";
  if (carrid == "SQ") return "SGD";
  return "EUR";
}

struct Plane {
  const char* type;
  int economy, business, first;
};
const Plane kPlanes[] = {{"A319-100", 120, 8, 0},  {"A321-200", 185, 20, 0}, {"A340-600", 330, 30, 10},
                         {"747-400", 385, 31, 21}, {"767-200", 260, 21, 11}, {"A380-800", 475, 30, 20}};

// A small deterministic generator, so that every start yields the same rows.
struct Lcg {
  std::uint64_t state;
  std::uint32_t next() {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<std::uint32_t>(state >> 33);
  }
  int below(int n) { return static_cast<int>(next() % static_cast<std::uint32_t>(n)); }
};

}  // namespace

void generateFlights(System& system, std::size_t rows) {
  DbTable* t = system.tables().findMutable("SFLIGHT");
  if (!t) throw std::logic_error("SFLIGHT is not defined");
  t->rows.clear();
  t->rows.reserve(rows);
  const std::int64_t base = daysFromCivil(2025, 1, 6);
  const TypeDesc& type = *t->type;
  const int iMandt = type.find("MANDT"), iCarr = type.find("CARRID"), iConn = type.find("CONNID"),
            iDate = type.find("FLDATE"), iPrice = type.find("PRICE"), iCurr = type.find("CURRENCY"),
            iPlane = type.find("PLANETYPE"), iMax = type.find("SEATSMAX"), iOcc = type.find("SEATSOCC"),
            iSum = type.find("PAYMENTSUM"), iMaxB = type.find("SEATSMAX_B"), iOccB = type.find("SEATSOCC_B"),
            iMaxF = type.find("SEATSMAX_F"), iOccF = type.find("SEATSOCC_F");
  const Value initial = initialValue(type);
  for (std::size_t k = 0; k < rows; ++k) {
    const Connection& c = kConnections[k % kConnectionCount];
    const std::int64_t week = static_cast<std::int64_t>(k / kConnectionCount);
    Lcg rng{k * 2654435761ULL + 17};
    const Plane& plane = kPlanes[rng.below(sizeof(kPlanes) / sizeof(kPlanes[0]))];
    const int occ = plane.economy / 3 + rng.below(plane.economy - plane.economy / 3 + 1);
    const int occB = rng.below(plane.business + 1), occF = plane.first ? rng.below(plane.first + 1) : 0;
    const std::int64_t priceCents = static_cast<std::int64_t>(c.basePrice) * 100 + rng.below(40) * 500;
    Value row = initial;
    auto& it = row.items();
    it[static_cast<size_t>(iMandt)] = Value("001");
    it[static_cast<size_t>(iCarr)] = Value(c.carrid);
    it[static_cast<size_t>(iConn)] = Value(c.connid);
    it[static_cast<size_t>(iDate)] = Value(civilFromDays(base + week * 7 + static_cast<std::int64_t>(k % 7)));
    it[static_cast<size_t>(iPrice)] = Value(packedFromScaled(priceCents, 2));
    it[static_cast<size_t>(iCurr)] = Value(currencyOf(c.carrid));
    it[static_cast<size_t>(iPlane)] = Value(plane.type);
    it[static_cast<size_t>(iMax)] = Value(std::int64_t{plane.economy});
    it[static_cast<size_t>(iOcc)] = Value(std::int64_t{occ});
    it[static_cast<size_t>(iSum)] = Value(packedFromScaled(priceCents * (occ + 2 * occB + 4 * occF), 2));
    it[static_cast<size_t>(iMaxB)] = Value(std::int64_t{plane.business});
    it[static_cast<size_t>(iOccB)] = Value(std::int64_t{occB});
    it[static_cast<size_t>(iMaxF)] = Value(std::int64_t{plane.first});
    it[static_cast<size_t>(iOccF)] = Value(std::int64_t{occF});
    t->rows.push_back(std::move(row));
  }
  t->sortByKey();
}

void installData(System& s) {
  UserStore& users = s.users();
  const std::vector<ClientInfo> clients = {{"000", "SAP AG Konzern", "Walldorf", "EUR"},
                                           {"001", "Auslieferungsmandant R11", "Kundstadt", "EUR"},
                                           {"066", "EarlyWatch", "Walldorf", "EUR"},
                                           {"100", "Veltrane demo client", "Kundstadt", "USD"}};
  for (const auto& c : clients) users.addClient(c);
  const std::vector<Language> languages = {{"E", "EN", "English"}, {"D", "DE", "German"},  {"F", "FR", "French"},
                                           {"S", "ES", "Spanish"}, {"I", "IT", "Italian"}, {"J", "JA", "Japanese"}};
  for (const auto& l : languages) users.addLanguage(l);
  for (const char* client : {"000", "001", "100"})
    users.addUser({client, "DEMO", "Welcome1", false, false, "E", "Demo User", {}, 0});
  users.addUser({"001", "EXPIRED", "Welcome1", false, true, "E", "User with an expired password", {}, 0});
  users.addUser({"001", "LOCKED", "Welcome1", true, false, "E", "Locked user", {}, 0});
  users.addUser({"001",
                 "RESTRICTED",
                 "Welcome1",
                 false,
                 false,
                 "E",
                 "User with few authorizations",
                 {"RFC_PING", "RFC_SYSTEM_INFO", "STFC_CONNECTION"},
                 0});
  users.addUser({"001", "DEVELOPER", "Welcome1", false, false, "D", "Developer with German logon language", {}, 0});

  auto& t000 = defineTable(s, "T000",
                           {{"MANDT", "MANDT"},
                            {"MTEXT", "C25", "Client name"},
                            {"ORT01", "C25", "City"},
                            {"MWAER", "WAERS", "Standard currency"},
                            {"ADRNR", "C10", "Address"},
                            {"CCCATEGORY", "C1", "Client control: role of client"},
                            {"CCCORACTIV", "C1", "Changes and transports for client-specific objects"},
                            {"CCNOCLIIND", "C1", "Maintenance authorization for cross-client objects"},
                            {"CCCOPYLOCK", "C1", "Protection against overwriting by client copy"},
                            {"CCNOCASCAD", "C1", "Protection regarding client copy"},
                            {"CCSOFTLOCK", "C1", "Client is locked temporarily"},
                            {"CCORIGCONT", "C1", "Recording of changes to original objects"},
                            {"CCIMAILDIS", "C1", "Restrictions for CATT and eCATT"},
                            {"CCTEMPLOCK", "C1", "Client lock temporary"},
                            {"CHANGEUSER", "XUBNAME", "Last changed by"},
                            {"CHANGEDATE", "D", "Date of last change"},
                            {"LOGSYS", "C10", "Logical system"}},
                           1, false, "Clients");
  for (const auto& c : clients) {
    const std::string role = c.id == "000" ? "S" : (c.id == "066" ? "S" : (c.id == "001" ? "C" : "T"));
    addRows(t000, {{c.id, c.text, c.city, c.currency, "", role, "1", "", "", "", "", "", "", "", "DEMO", "20250106",
                    c.id == "001" ? "VSMCLNT001" : ""}});
  }

  auto& t002 = defineTable(s, "T002",
                           {{"SPRAS", "SPRAS"},
                            {"LASPEZ", "C1", "Language specification"},
                            {"LAHQ", "C1", "Degree of translation"},
                            {"LAISO", "LAISO"}},
                           1, false, "Language Keys");
  for (const auto& l : languages) addRows(t002, {{l.key, "", l.key == "E" || l.key == "D" ? "1" : "2", l.iso}});

  auto& tcurc = defineTable(s, "TCURC",
                            {{"MANDT", "MANDT"},
                             {"WAERS", "WAERS"},
                             {"ISOCD", "ISOCD"},
                             {"ALTWR", "ALTWR"},
                             {"GDATU", "GDATU_CUR"},
                             {"XPRIMARY", "C1", "Primary SAP currency code for ISO code"}},
                            2, true, "Currency Codes");
  auto& tcurt = defineTable(
      s, "TCURT",
      {{"MANDT", "MANDT"}, {"SPRAS", "SPRAS"}, {"WAERS", "WAERS"}, {"LTEXT", "LTEXT"}, {"KTEXT", "KTEXT_CURT"}}, 3,
      true, "Currency Code Names");
  struct Cur {
    const char *waers, *iso, *num, *en, *de;
  };
  const Cur currencies[] = {{"AUD", "AUD", "036", "Australian Dollar", "Australischer Dollar"},
                            {"CAD", "CAD", "124", "Canadian Dollar", "Kanadischer Dollar"},
                            {"CHF", "CHF", "756", "Swiss Franc", "Schweizer Franken"},
                            {"CNY", "CNY", "156", "Chinese Renminbi", "Chinesischer Renminbi"},
                            {"EUR", "EUR", "978", "European Euro", "Europaeischer Euro"},
                            {"GBP", "GBP", "826", "British Pound", "Britisches Pfund"},
                            {"INR", "INR", "356", "Indian Rupee", "Indische Rupie"},
                            {"JPY", "JPY", "392", "Japanese Yen", "Japanischer Yen"},
                            {"SEK", "SEK", "752", "Swedish Krona", "Schwedische Krone"},
                            {"SGD", "SGD", "702", "Singapore Dollar", "Singapur-Dollar"},
                            {"USD", "USD", "840", "American Dollar", "Amerikanischer Dollar"},
                            {"ZAR", "ZAR", "710", "South African Rand", "Suedafrikanischer Rand"}};
  for (const char* client : {"000", "001", "100"}) {
    for (const auto& c : currencies) {
      addRows(tcurc, {{client, c.waers, c.iso, c.num, "", "X"}});
      addRows(tcurt, {{client, "D", c.waers, c.de, c.waers}, {client, "E", c.waers, c.en, c.waers}});
    }
  }

  auto& usr02 = defineTable(s, "USR02",
                            {{"MANDT", "MANDT"},
                             {"BNAME", "XUBNAME"},
                             {"GLTGV", "D", "User valid from"},
                             {"GLTGB", "D", "User valid to"},
                             {"USTYP", "C1", "User type"},
                             {"CLASS", "C12", "User group"},
                             {"LOCNT", "INT1", "Number of failed logon attempts"},
                             {"UFLAG", "INT1", "User lock status"}},
                            2, true, "Logon Data (Kernel-Side Use)");
  usr02.restricted = true;
  for (const auto& c : {"000", "001", "100"})
    for (const char* name : {"DEMO", "EXPIRED", "LOCKED", "RESTRICTED", "DEVELOPER"})
      if (auto u = users.find(c, name))
        addRows(usr02, {{c, u->name, "20250101", "99991231", "A", "", "0", u->locked ? "64" : "0"}});

  auto& scarr = defineTable(s, "SCARR",
                            {{"MANDT", "MANDT"},
                             {"CARRID", "S_CARR_ID"},
                             {"CARRNAME", "S_CARRNAME"},
                             {"CURRCODE", "S_CURRCODE"},
                             {"URL", "S_CARRURL"}},
                            2, true, "Airline");
  const std::vector<std::vector<std::string>> airlines = {
      {"AA", "American Airlines", "USD", "http://www.aa.com"},
      {"AC", "Air Canada", "CAD", "http://www.aircanada.ca"},
      {"AF", "Air France", "EUR", "http://www.airfrance.fr"},
      {"AZ", "Alitalia", "EUR", "http://www.alitalia.it"},
      {"BA", "British Airways", "GBP", "http://www.british-airways.com"},
      {"CO", "Continental Airlines", "USD", "http://www.continental.com"},
      {"DL", "Delta Airlines", "USD", "http://www.delta-air.com"},
      {"FJ", "Air Pacific", "USD", "http://www.airpacific.com"},
      {"JL", "Japan Airlines", "JPY", "http://www.jal.co.jp"},
      {"LH", "Lufthansa", "EUR", "http://www.lufthansa.com"},
      {"NG", "Lauda Air", "EUR", "http://www.laudaair.com"},
      {"NW", "Northwest Airlines", "USD", "http://www.nwa.com"},
      {"QF", "Qantas Airways", "AUD", "http://www.qantas.com.au"},
      {"SA", "South African Air.", "ZAR", "http://www.saa.co.za"},
      {"SQ", "Singapore Airlines", "SGD", "http://www.singaporeair.com"},
      {"SR", "Swiss", "CHF", "http://www.swiss.com"},
      {"UA", "United Airlines", "USD", "http://www.ual.com"}};
  for (const auto& a : airlines) addRows(scarr, {{"001", a[0], a[1], a[2], a[3]}});

  auto& spfli = defineTable(s, "SPFLI",
                            {{"MANDT", "MANDT"},
                             {"CARRID", "S_CARR_ID"},
                             {"CONNID", "S_CONN_ID"},
                             {"COUNTRYFR", "LAND1", "Country Key"},
                             {"CITYFROM", "S_FROM_CIT"},
                             {"AIRPFROM", "S_FROMAIRP"},
                             {"COUNTRYTO", "LAND1", "Country Key"},
                             {"CITYTO", "S_TO_CITY"},
                             {"AIRPTO", "S_TOAIRP"},
                             {"FLTIME", "S_FLTIME"},
                             {"DEPTIME", "S_DEP_TIME"},
                             {"ARRTIME", "S_ARR_TIME"},
                             {"DISTANCE", "S_DISTANCE"},
                             {"DISTID", "S_DISTID"},
                             {"FLTYPE", "S_FLTYPE"},
                             {"PERIOD", "S_PERIOD"}},
                            3, true, "Flight schedule");
  for (const auto& c : kConnections)
    addRows(spfli,
            {{"001", c.carrid, c.connid, c.countryfr, c.cityfrom, c.airpfrom, c.countryto, c.cityto, c.airpto,
              std::to_string(c.fltime), c.deptime, c.arrtime, c.distance, c.distid, "", std::to_string(c.period)}});

  defineTable(s, "SFLIGHT",
              {{"MANDT", "MANDT"},
               {"CARRID", "S_CARR_ID"},
               {"CONNID", "S_CONN_ID"},
               {"FLDATE", "S_DATE"},
               {"PRICE", "S_PRICE"},
               {"CURRENCY", "S_CURRCODE"},
               {"PLANETYPE", "S_PLANETYE"},
               {"SEATSMAX", "S_SEATSMAX"},
               {"SEATSOCC", "S_SEATSOCC"},
               {"PAYMENTSUM", "S_SUM"},
               {"SEATSMAX_B", "S_SMAX_B"},
               {"SEATSOCC_B", "S_SOCC_B"},
               {"SEATSMAX_F", "S_SMAX_F"},
               {"SEATSOCC_F", "S_SOCC_F"}},
              4, true, "Flight");
  generateFlights(s, s.options().flightRows ? s.options().flightRows : kStandardFlights);

  for (const auto& name : s.tables().names()) s.tables().findMutable(name)->sortByKey();
}

}  // namespace vsim
