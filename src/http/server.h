// The HTTP service: the public classes over HTTP for other programs, and
// the planner's web workbench, served by one process.
//
//   POST /api/call/{ProgID}/{Method}   {"args": [...]}: what `mrpcalc call` prints
//   POST /api/calls                    [{"progid", "method", "args"}, ...]
//   GET  /api/me                       the signed-in user
//   GET  /api/open-demand              open sales-order lines and tasks
//   POST /api/report                   the MRP report with each row's pegging
//   POST /api/export/{name}.{csv|xlsx} {"rows": [...]}: the rows as a file
//   GET  /                             the workbench
//
// Each call is its own unit of work; its session comes from a pool kept by
// the service, so that a server engine is not logged in to for every call.
// Every /api/ request needs "Authorization: Bearer TOKEN" (401 without a
// live one). A call naming another user in a user-id argument (UserID,
// BillerID) is refused with 403 unless the token's user is an
// administrator; the dispatcher decides it on the converted arguments.
// The database is always the service's own: a body cannot name another.
// Answers: 200; 422 with the error object when the method refuses its
// arguments; 403 when it may not act for the user named; 404 for an
// unknown class or method; 500 when the database or the service failed
// (the reason goes to the log, not to the caller); 400 for a body that is
// not JSON, not UTF-8, holds a number beyond a double or nests deeper than
// 64 levels; 413 for a body over the limit. "Accept-Language: en" (or zh)
// chooses the language of the service's messages.
//
// A write is safe to repeat when /api/call carries "Idempotency-Key: K":
// the first answer per user and key is kept and given again, with
// "Idempotent-Replayed: true", for a repeat, which writes nothing (the same
// key with another request is 422). A script (/api/calls) takes no key.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "frame/host.h"
#include "mrp/open_demand.h"
#include "record/json.h"

namespace httplib {
class Server;
}

namespace mrpcalc {
class ConnectionPool;
}

namespace mrpcalc::http {

struct ServeOptions {
  std::string dsn;
  std::string bind = "127.0.0.1";
  int port = 8080;
  size_t max_body = 16u << 20;  // bytes
  // Connections served at once; more wait for a free worker. Slow or idle
  // clients hold one each, so there are many more than cores.
  size_t workers = 64;
  // A client that sends or takes nothing for this long loses its
  // connection; an idle kept-alive connection closes after `keep_alive`.
  int read_timeout_seconds = 10;
  int write_timeout_seconds = 10;
  int keep_alive_seconds = 2;
};

// The body of POST /api/report as a report request, and back: "bills"
// (numbers), "lines" (just these open lines: {"type", "inter_id",
// "entry_id"}, the line 0 for a task), "sub_id", "single_level", "switches" (an object of the
// report's switch names: "NowStock", "SaveStock", "Moving", "UnSale",
// "Producing", "Produc", "MidStockQty", "Virtual"), "warehouses", "form"
// and "user" (the caller's user when absent). With "compact": true the
// answer is {"report": T, "demand": T, "pegging": [[[line, share], ...],
// ...], "messages": [...]} without blanks, each T {"columns": [...],
// "rows": [[...], ...]}: a row's pegging names its demand lines by their
// place in "demand" (FTranType, FBillNo, FInterID, FEntryID, FItemID).
// With "compact": true and "pegging": "by_row" the answer carries no
// pegging but "pegging_id"; GET /api/pegging/{id}/{row} then answers one
// row's pegging as a table T (FTranType, FBillNo, FInterID, FEntryID,
// FItemID, FQty). The service keeps each user's last such report's
// pegging only: an older id is 404. A body that is not an
// object is invalid input; a value of the wrong type throws Json's own
// type error (the service answers 400).
mrp::ReportRequest ReadReportRequest(const Json& body, int32_t caller);
//
// POST /api/phased takes the same body, with "today" (YYYY-MM-DD, default
// the server's date) and "save" (keep the run), and answers {"plan_id",
// "run_id" (null unless saved), "today", "items": T, "suppliers": T
// (planned purchases per supplier), "actions": T, "messages"}; the service
// keeps each user's last plan for GET /api/phased/{id}/orders?item=ID or
// ?kind=purchase (the orders, each with its place FOrder),
// GET /api/phased/{id}/buckets?item=ID&size=day|week|month and
// GET /api/phased/{id}/order/{n} (its reasons and pegging). Saved runs:
// GET /api/phased/runs and GET /api/phased/diff?before=RUN&after=RUN.
// Parameters: GET, PUT and DELETE /api/phased/params; the working calendar:
// GET and PUT /api/phased/calendar.
Json ReportRequestJson(const mrp::ReportRequest& request);

class Service {
 public:
  Service(ServeOptions options, Host host);
  ~Service();
  // Binds; port 0 takes a free port. Returns the port, throws when it cannot bind.
  int Bind();
  // Serves until Stop().
  void Listen();
  // True once Listen() accepts connections: Stop() stops only a service
  // that listens (one that has yet to start would go on).
  bool Listening() const;
  void Stop();

  // A sign-in token for the user, and its revocation, on the service's own
  // database (what `mrpcalc token` does), for programs that run a service
  // in their own process.
  std::string IssueToken(int32_t user);
  bool RevokeToken(const std::string& token);

 private:
  void Routes();
  void PhasedRoutes();
  Host RequestHost() const;

  ServeOptions options_;
  Host host_;
  std::shared_ptr<ConnectionPool> pool_;
  std::unique_ptr<httplib::Server> server_;
  // Each user's last report's pegging, for the rows asked for one by one.
  struct PeggingStore;
  std::unique_ptr<PeggingStore> pegging_;
  // Each user's last time-phased plan, for its buckets and orders.
  struct PhasedStore;
  std::unique_ptr<PhasedStore> phased_;
};

}  // namespace mrpcalc::http
