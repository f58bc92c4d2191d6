// The HTTP service.
#include "http/server.h"

#include <httplib.h>

#include <malloc.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>

#include "component/registry.h"
#include "db/connection.h"
#include "export/table_export.h"
#include "export/xlsx.h"
#include "frame/answer.h"
#include "frame/context.h"
#include "http/answers.h"
#include "http/phased_store.h"
#include "http/tokens.h"
#include "http/workbench.h"
#include "mrp/mrp_data_info.h"
#include "mrp/open_demand.h"
#include "record/error.h"
#include "record/json.h"
#include "record/text.h"
#include "schema/erp_schema.h"
#include "services/idempotency.h"
#include "services/rights.h"

namespace mrpcalc::http {
namespace {

constexpr const char* kIdempotencyKey = "Idempotency-Key";

thread_local std::chrono::steady_clock::time_point request_started;
thread_local std::string request_language;  // "en" or "zh" from Accept-Language, else ""

// The login of one request: the service's, with the token's user and the
// language the caller asked for in front (the first of a name in a
// property string wins), so that whatever reads the login's user reads the
// caller, never the service's own login.
class RequestLogin : public LoginProperties {
 public:
  RequestLogin(std::shared_ptr<LoginProperties> base, int32_t user, std::string language)
      : base_(std::move(base)), user_(user), language_(std::move(language)) {}
  std::optional<std::string> GetProperty(const std::string& name) override {
    std::optional<std::string> value = base_ ? base_->GetProperty(name) : std::nullopt;
    if (EqualsIgnoringCase(name, "PropsString")) {
      std::string front = "UserID=" + std::to_string(user_) + ";";
      if (!language_.empty()) front += "Language=" + language_ + ";";
      return front + value.value_or("");
    }
    return value;
  }

 private:
  std::shared_ptr<LoginProperties> base_;
  int32_t user_;
  std::string language_;
};

}  // namespace

// The last report's pegging of each user, kept for the page to ask for a
// row's at a time: the whole of it would be most of a large answer.
struct Service::PeggingStore {
  struct Entry {
    std::string id;
    std::vector<mrp::DemandLine> demand;
    std::vector<std::vector<mrp::Peg>> pegs;  // by report row
  };
  std::mutex mutex;
  std::map<int32_t, std::shared_ptr<const Entry>> by_user;
  uint64_t next = 1;
};

Service::Service(ServeOptions options, Host host)
    : options_(std::move(options)),
      host_(std::move(host)),
      pool_(std::make_shared<ConnectionPool>()),
      server_(std::make_unique<httplib::Server>()),
      pegging_(std::make_unique<PeggingStore>()),
      phased_(std::make_unique<PhasedStore>()) {
  Routes();
  PhasedRoutes();
}

Service::~Service() = default;

namespace {

// The report switches by their names in a body, with the request's field.
struct SwitchField {
  const char* name;
  bool mrp::ReportRequest::*field;
};
constexpr SwitchField kSwitches[] = {
    {"NowStock", &mrp::ReportRequest::now_stock},   {"SaveStock", &mrp::ReportRequest::save_stock},
    {"Moving", &mrp::ReportRequest::moving},        {"UnSale", &mrp::ReportRequest::unsale},
    {"Producing", &mrp::ReportRequest::producing},  {"Produc", &mrp::ReportRequest::produc},
    {"MidStockQty", &mrp::ReportRequest::mid_stock}, {"Virtual", &mrp::ReportRequest::virtual_stock},
};

}  // namespace

mrp::ReportRequest ReadReportRequest(const Json& body, int32_t caller) {
  if (!body.is_object()) ThrowInvalid("the body must be an object");
  mrp::ReportRequest request;
  for (const auto& b : body.value("bills", Json::array()))
    request.bills.push_back(b.get<std::string>());
  for (const auto& l : body.value("lines", Json::array())) {
    request.lines.push_back({l.at("type").get<int32_t>(), l.at("inter_id").get<int32_t>(),
                             l.value("entry_id", 0)});
  }
  request.sub_id = body.value("sub_id", std::string("SC"));
  request.single_level = body.value("single_level", false);
  const Json switches = body.value("switches", Json::object());
  for (const SwitchField& s : kSwitches) request.*s.field = switches.value(s.name, false);
  request.warehouses = body.value("warehouses", std::string());
  request.form = body.value("form", 1);
  request.user = body.contains("user") ? Variant(FromJson(body["user"])).ToLong() : caller;
  return request;
}

Json ReportRequestJson(const mrp::ReportRequest& request) {
  Json switches = Json::object();
  for (const SwitchField& s : kSwitches) switches[s.name] = request.*s.field;
  Json lines = Json::array();
  for (const auto& l : request.lines) {
    lines.push_back({{"type", l.tran_type}, {"inter_id", l.inter_id}, {"entry_id", l.entry_id}});
  }
  return {{"bills", request.bills},           {"lines", lines},
          {"sub_id", request.sub_id},
          {"single_level", request.single_level}, {"switches", switches},
          {"warehouses", request.warehouses},  {"form", request.form},
          {"user", request.user}};
}

std::string Service::IssueToken(int32_t user) {
  PooledSession c(*pool_, options_.dsn);
  db::Transaction tx(*c);
  std::string token = CreateToken(*c, user);
  tx.Commit();
  return token;
}

bool Service::RevokeToken(const std::string& token) {
  PooledSession c(*pool_, options_.dsn);
  return http::RevokeToken(*c, token);
}

int Service::Bind() {
  {
    PooledSession c(*pool_, options_.dsn);
    // SQLite: readers and one writer at once, writers waiting for each other.
    if (options_.dsn.rfind("sqlite:", 0) == 0) c->QueryValue("pragma journal_mode=WAL");
    // The service's own tables (tokens, numbering, locks), before any request.
    for (const auto& table : schema::UpgradeOwnTables(*c)) {
      std::cerr << "mrpcalc: created its table " << table << " in " << c->description() << "\n";
    }
  }
  const int port = options_.port == 0
                       ? server_->bind_to_any_port(options_.bind)
                       : (server_->bind_to_port(options_.bind, options_.port) ? options_.port : -1);
  if (port < 0) {
    ThrowInvalid("cannot listen on " + options_.bind + ":" + std::to_string(options_.port) +
                 " (is another service on that port?)");
  }
  return port;
}

void Service::Listen() { server_->listen_after_bind(); }
bool Service::Listening() const { return server_->is_running(); }
void Service::Stop() { server_->stop(); }

// The host of one request: the service's, with messages of its own and
// sessions from the service's pool.
Host Service::RequestHost() const {
  Host host = host_;
  host.messages = std::make_shared<MessageSink>();
  host.login = std::make_shared<RequestLogin>(host.login, request_user, request_language);
  host.make_context = [pool = pool_] { return std::make_unique<StandaloneContext>(db::OpenOptions{}, pool); };
  auto caller = std::make_shared<Caller>();
  caller->user = request_user;
  caller->is_administrator = [pool = pool_, dsn = options_.dsn, user = request_user] {
    PooledSession c(*pool, dsn);
    return IsAdministrator(*c, user);
  };
  host.caller = std::move(caller);
  return host;
}

void Service::Routes() {
  httplib::Server& s = *server_;
  s.set_payload_max_length(options_.max_body);
  // One service a port: the address may be taken again after a restart
  // (SO_REUSEADDR), but not shared with a second listener (no SO_REUSEPORT,
  // which the library would set and which splits requests between two).
  s.set_socket_options([](socket_t sock) {
    int yes = 1;
    ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  const size_t workers = std::max<size_t>(options_.workers, 4);
  s.new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
  s.set_read_timeout(options_.read_timeout_seconds, 0);
  s.set_write_timeout(options_.write_timeout_seconds, 0);
  s.set_keep_alive_timeout(options_.keep_alive_seconds);
  s.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
    request_started = std::chrono::steady_clock::now();
    request_user = 0;
    request_takes_gzip = FoldKey(req.get_header_value("Accept-Encoding")).find("gzip") !=
                         std::string::npos;
    // Messages in the caller's language: English or Chinese.
    const std::string accept = req.get_header_value("Accept-Language");
    request_language = accept.rfind("en", 0) == 0 ? "en" : accept.rfind("zh", 0) == 0 ? "zh" : "";
    if (req.path.rfind("/api/", 0) != 0) return httplib::Server::HandlerResponse::Unhandled;
    // Bodies are JSON. A form's body would be read by the library under a
    // limit of its own (8 KB), and answered 413 however small the service's
    // limit is: such a request is told what to send instead.
    const std::string type = FoldKey(req.get_header_value("Content-Type"));
    if (type.rfind("application/x-www-form-urlencoded", 0) == 0 ||
        type.rfind("multipart/form-data", 0) == 0) {
      Refuse(res, 415, "send the body as JSON (Content-Type: application/json)");
      return httplib::Server::HandlerResponse::Handled;
    }
    // The scheme's name is read without regard to case (RFC 9110).
    const std::string header = req.get_header_value("Authorization");
    const std::string token =
        header.size() > 7 && EqualsIgnoringCase(header.substr(0, 7), "Bearer ")
            ? Trim(header.substr(7))
            : "";
    std::optional<int32_t> user;
    try {
      PooledSession c(*pool_, options_.dsn);
      user = UserOfToken(*c, token);
    } catch (const std::exception& e) {
      Refuse(res, 500, e.what());
      return httplib::Server::HandlerResponse::Handled;
    }
    if (!user) {
      res.set_header("WWW-Authenticate", "Bearer");
      Refuse(res, 401, "sign in with a token: Authorization: Bearer TOKEN");
      return httplib::Server::HandlerResponse::Handled;
    }
    request_user = *user;
    return httplib::Server::HandlerResponse::Unhandled;
  });
  s.set_logger([](const httplib::Request& req, const httplib::Response& res) {
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() -
                                                                request_started)
                          .count();
    std::fprintf(stderr, "%s %s %s %d %.1f ms user %d\n", Date::Now().ToString().c_str(),
                 req.method.c_str(), req.path.c_str(), res.status, ms, request_user);
  });
  s.set_exception_handler(
      [](const httplib::Request&, httplib::Response& res, std::exception_ptr ep) {
        try {
          std::rethrow_exception(ep);
        } catch (const std::exception& e) {
          Refuse(res, 500, e.what());
        } catch (...) {
          Refuse(res, 500, "unknown failure");
        }
      });

  // The workbench.
  for (const auto& file : WorkbenchFiles()) {
    const std::string path = file.path == "index.html" ? "/" : "/" + file.path;
    s.Get(path, [file](const httplib::Request&, httplib::Response& res) {
      res.set_content(std::string(file.content), file.content_type);
    });
  }

  s.Get("/api/me", [this](const httplib::Request&, httplib::Response& res) {
    PooledSession c(*pool_, options_.dsn);
    const std::string name = UserName(*c, request_user);
    Json me = {{"user", request_user},
               {"name", name},
               {"administrator", IsAdministrator(*c, request_user)}};
    Answer(res, 200, me.dump(2));
  });

  s.Get("/api/open-demand", [this](const httplib::Request&, httplib::Response& res) {
    PooledSession c(*pool_, options_.dsn);
    Json rows = Json::array();
    for (const auto& l : mrp::ListOpenDemand(*c)) {
      rows.push_back({{"Ftrantype", l.tran_type},
                      {"FBillNo", l.bill_no},
                      {"FInterID", l.inter_id},
                      {"FEntryID", l.entry_id},
                      {"FItemID", l.item_id},
                      {"FItemNumber", l.item_number},
                      {"FItemName", l.item_name},
                      {"FQty", l.open_qty},
                      {"FUnitName", l.unit_name},
                      {"FDate", l.date.ToDateString()},
                      {"FPurchasePlanBillNo", l.plans}});
    }
    Answer(res, 200, rows.dump(2));
  });

  s.Post(
      R"(/api/call/([^/]+)/([^/]+))", [this](const httplib::Request& req, httplib::Response& res) {
        Json body;
        if (!ParseBody(req, res, body)) return;
        const std::string prog_id = req.matches[1], method = req.matches[2];
        try {
          std::vector<Variant> args;
          if (body.is_object() && body.contains("args")) {
            if (!body["args"].is_array()) return Refuse(res, 400, "\"args\" must be an array");
            for (const auto& a : body["args"]) args.push_back(FromJson(a));
          } else if (!body.is_object()) {
            return Refuse(res, 400, "the body must be an object {\"args\": [...]}");
          }
          const Host host = RequestHost();
          auto run = [&] {
            return CallAnswerText(Invoke(PublicClasses(), host, prog_id, method, args, options_.dsn));
          };
          if (!req.has_header(kIdempotencyKey)) return Answer(res, 200, run());
          // A keyed write: once per user and key, its answer kept.
          const KeyedAnswer answer =
              AnswerOnce(options_.dsn, {}, request_user, req.get_header_value(kIdempotencyKey),
                         Sha256Hex(prog_id + "\n" + method + "\n" + req.body), run);
          if (answer.replayed) res.set_header("Idempotent-Replayed", "true");
          Answer(res, 200, answer.body);
        } catch (const Error& e) {
          AnswerError(res, e);
        }
      });

  s.Post("/api/calls", [this](const httplib::Request& req, httplib::Response& res) {
    Json body;
    if (!ParseBody(req, res, body)) return;
    if (req.has_header(kIdempotencyKey)) {
      return Refuse(res, 400,
                    "an idempotency key goes with one call (/api/call), not with a script");
    }
    const Json& script = body.is_object() && body.contains("calls") ? body["calls"] : body;
    if (!script.is_array()) return Refuse(res, 400, "the body must be an array of calls");
    // A call of the script that names another user is refused in its place.
    CallSession session(PublicClasses(), RequestHost());
    bool failed = false;
    Answer(res, 200, RunCallScript(session, script, options_.dsn, failed, ErrorAnswerFor));
  });

  s.Get(R"(/api/pegging/([^/]+)/(\d+))", [this](const httplib::Request& req,
                                                 httplib::Response& res) {
    std::shared_ptr<const PeggingStore::Entry> entry;
    {
      std::lock_guard<std::mutex> lock(pegging_->mutex);
      auto it = pegging_->by_user.find(request_user);
      if (it != pegging_->by_user.end() && it->second->id == req.matches[1].str()) entry = it->second;
    }
    if (!entry) return Refuse(res, 404, "no such report: run the report again");
    const size_t row = std::stoul(req.matches[2].str());
    if (row >= entry->pegs.size()) return Refuse(res, 404, "the report has no row " + std::to_string(row));
    AnswerBuffer out;
    JsonWriter w([&](std::string_view chunk) { out.Append(chunk); });
    w.Raw("{\"columns\":[\"FTranType\",\"FBillNo\",\"FInterID\",\"FEntryID\",\"FItemID\",\"FQty\"],\"rows\":[");
    const auto& pegs = entry->pegs[row];
    for (size_t k = 0; k < pegs.size(); ++k) {
      w.Raw(k ? ",[" : "[");
      DemandLineValues(w, entry->demand[static_cast<size_t>(pegs[k].demand)]);
      w.Raw(",");
      w.Value(Variant(pegs[k].qty), 0);
      w.Raw("]");
    }
    w.Raw("]}");
    w.Flush();
    out.Send(res);
  });

  s.Post("/api/report", [this](const httplib::Request& req, httplib::Response& res) {
    Json body;
    if (!ParseBody(req, res, body)) return;
    bool large_answer = false;
    // A large report's rows and pegging go back to the system once
    // answered: the service would otherwise keep the most it ever held.
    struct Trim {
      bool& large;
      ~Trim() {
        if (large) malloc_trim(0);
      }
    } trim{large_answer};
    try {
      const Host host = RequestHost();
      const mrp::ReportRequest request = ReadReportRequest(body, request_user);
      EnsureMayActFor(host, "user", request.user);
      MrpDataInfo info(host);
      AnswerBuffer out;
      JsonWriter w([&](std::string_view chunk) { out.Append(chunk); });
      VectorPtr rows;
      if (body.value("compact", false)) {
        // The large form: each table's names once, its rows as arrays, and
        // each row's pegging as [demand line, share] into one list of lines.
        const bool by_row = body.value("pegging", std::string()) == "by_row";
        if (by_row) {
          // The last report's pegging goes before the next is made.
          std::lock_guard<std::mutex> lock(pegging_->mutex);
          pegging_->by_user.erase(request_user);
        }
        auto report = info.GetMrpReportPeggedByLineFor(options_.dsn, request);
        rows = report.rows;
        CheckJsonText(Variant(report.rows));
        w.Raw("{\"report\":");
        CompactRows(w, report.rows);
        if (by_row) {
          // Kept for the rows asked for, no larger than it is; the answer names it.
          auto entry = std::make_shared<PeggingStore::Entry>();
          entry->demand = std::move(report.demand);
          entry->pegs = std::move(report.pegs);
          for (auto& pegs : entry->pegs) pegs.shrink_to_fit();
          {
            std::lock_guard<std::mutex> lock(pegging_->mutex);
            // A user reads only his own: the number need not be secret.
            entry->id = std::to_string(pegging_->next++);
            pegging_->by_user[request_user] = entry;
          }
          w.Raw(",\"pegging_id\":");
          w.String(entry->id);
        } else {
          w.Raw(",\"demand\":{\"columns\":[\"FTranType\",\"FBillNo\",\"FInterID\",\"FEntryID\",\"FItemID\"],"
                "\"rows\":[");
          for (size_t i = 0; i < report.demand.size(); ++i) {
            w.Raw(i ? ",[" : "[");
            DemandLineValues(w, report.demand[i]);
            w.Raw("]");
          }
          w.Raw("]},\"pegging\":[");
          for (size_t i = 0; i < report.pegs.size(); ++i) {
            w.Raw(i ? ",[" : "[");
            for (size_t k = 0; k < report.pegs[i].size(); ++k) {
              w.Raw(k ? ",[" : "[");
              w.Value(Variant(report.pegs[i][k].demand), 0);
              w.Raw(",");
              w.Value(Variant(report.pegs[i][k].qty), 0);
              w.Raw("]");
            }
            w.Raw("]");
          }
          w.Raw("]");
        }
        w.Raw(",\"messages\":");
        w.Strings(host.messages->messages(), 0);
        w.Raw("}");
      } else {
        const auto report = info.GetMrpReportPeggedFor(options_.dsn, request);
        rows = report.rows;
        CheckJsonText(Variant(report.rows));
        w.Raw("{\n  \"rows\": ");
        w.Value(Variant(report.rows), 2);
        w.Raw(",\n  \"pegging\": [");
        for (size_t i = 0; i < report.pegging.size(); ++i) {
          w.Raw(i ? ",\n    " : "\n    ");
          w.Value(Variant(report.pegging[i]), 4);
        }
        w.Raw(report.pegging.empty() ? "],\n  \"messages\": " : "\n  ],\n  \"messages\": ");
        w.Strings(host.messages->messages(), 2);
        w.Raw("\n}");
      }
      w.Flush();
      out.Send(res);
      large_answer = rows && rows->Count() > kLargeReportRows;
    } catch (const Error& e) {
      AnswerError(res, e);
    } catch (const Json::exception& e) {
      Refuse(res, 400, e.what());
    }
  });

  s.Post(R"(/api/export/([A-Za-z0-9_-]+)\.(csv|xlsx))", [](const httplib::Request& req,
                                                           httplib::Response& res) {
    Json body;
    if (!ParseBody(req, res, body)) return;
    if (!body.is_object() || !body.contains("rows") || !body["rows"].is_array()) {
      return Refuse(res, 400, "the body must be {\"rows\": [...]}");
    }
    VectorPtr rows;
    try {
      rows = FromJson(body["rows"]).AsVector();
    } catch (const Error& e) {
      return Refuse(res, 400, std::string("the rows: ") + e.what());
    }
    const std::string name = req.matches[1], kind = req.matches[2];
    res.set_header("Content-Disposition", "attachment; filename=\"" + name + "." + kind + "\"");
    if (kind == "csv") {
      res.set_content(ToCsv(rows ? rows : Vector::Create()), "text/csv; charset=utf-8");
    } else {
      res.set_content(XlsxBytes(rows ? rows : Vector::Create(), name),
                      "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet");
    }
  });
}

}  // namespace mrpcalc::http
