// The time-phased plan over HTTP: a plan per request, each user's last
// plan kept for its items' orders, records and reasons; saved runs and
// their comparison; planning parameters and the working calendar.
#include <malloc.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "frame/component.h"
#include "http/answers.h"
#include "http/phased_store.h"
#include "http/server.h"
#include "mrp/mrp_data_info.h"
#include "mrp/phased_repository.h"
#include "mrp/phased_rows.h"
#include "services/messages.h"

namespace mrpcalc::http {

namespace {

namespace phased = mrp::phased;

int32_t IntParam(const httplib::Request& req, const char* name) {
  const std::string text = req.get_param_value(name);
  const std::vector<int32_t> ids = db::ParseIdList(text, name);
  if (ids.size() != 1) ThrowInvalid(std::string("\"") + name + "\" must be one whole number");
  return ids[0];
}

// The request's language: the reasons of orders are shown in it.
bool English(const Host& host) {
  Messages messages(host.login, host.resources);
  return IsEnglish(messages.Language());
}

void AnswerTable(httplib::Response& res, const VectorPtr& rows) {
  AnswerBuffer out;
  JsonWriter w([&](std::string_view chunk) { out.Append(chunk); });
  CompactRows(w, rows);
  w.Flush();
  out.Send(res);
}

}  // namespace

void Service::PhasedRoutes() {
  httplib::Server& s = *server_;
  // Runs guarded: our errors by category, a malformed body 400.
  auto guarded = [](httplib::Response& res, auto&& body) {
    try {
      body();
    } catch (const Error& e) {
      AnswerError(res, e);
    } catch (const Json::exception& e) {
      Refuse(res, 400, e.what());
    }
  };
  auto last_plan = [this](const std::string& id) {
    std::lock_guard<std::mutex> lock(phased_->mutex);
    auto it = phased_->by_user.find(request_user);
    if (it == phased_->by_user.end() || it->second->id != id) {
      throw Error(ErrorCategory::kNotFound, "no such plan: run the plan again");
    }
    return it->second;
  };

  s.Post("/api/phased", [this, guarded](const httplib::Request& req, httplib::Response& res) {
    Json body;
    if (!ParseBody(req, res, body)) return;
    guarded(res, [&] {
      const Host host = RequestHost();
      const mrp::ReportRequest request = ReadReportRequest(body, request_user);
      EnsureMayActFor(host, "user", request.user);
      const std::string today_text = body.value("today", std::string());
      const phased::Day today = today_text.empty() ? phased::DayOf(Date::Now().StartOfDay())
                                                   : phased::ParseDay(today_text, "today");
      {
        // The last plan goes before the next is made.
        std::lock_guard<std::mutex> lock(phased_->mutex);
        phased_->by_user.erase(request_user);
      }
      MrpDataInfo info(host);
      auto entry = std::make_shared<PhasedStore::Entry>();
      entry->plan = std::make_shared<const MrpDataInfo::PhasedPlan>(
          info.GetPhasedPlanFor(options_.dsn, request, today));
      const phased::Input& in = entry->plan->input;
      const phased::Result& result = entry->plan->result;
      PooledSession c(*pool_, options_.dsn);
      std::vector<int32_t> suppliers;
      for (const phased::Item& i : in.items) {
        if (i.supplier != 0) suppliers.push_back(i.supplier);
      }
      std::sort(suppliers.begin(), suppliers.end());
      suppliers.erase(std::unique(suppliers.begin(), suppliers.end()), suppliers.end());
      const auto numbers = repo::SupplierNumbers(*c, suppliers);
      std::optional<int32_t> run;
      if (body.value("save", false)) {
        db::Transaction tx(*c);
        run = repo::SaveRun(*c, request_user, ReportRequestJson(request).dump(),
                            phased::OrdersToSave(in, result));
        tx.Commit();
      }
      {
        std::lock_guard<std::mutex> lock(phased_->mutex);
        entry->id = std::to_string(phased_->next++);
        phased_->by_user[request_user] = entry;
      }
      AnswerBuffer out;
      JsonWriter w([&](std::string_view chunk) { out.Append(chunk); });
      w.Raw("{\"plan_id\":");
      w.String(entry->id);
      w.Raw(",\"run_id\":");
      w.Value(run ? Variant(*run) : Variant::Null(), 0);
      w.Raw(",\"today\":");
      w.String(phased::DateOf(today).ToDateString());
      w.Raw(",\"items\":");
      CompactRows(w, phased::ItemRows(entry->plan, numbers));
      w.Raw(",\"suppliers\":");
      CompactRows(w, phased::SupplierRows(entry->plan, numbers));
      w.Raw(",\"actions\":");
      CompactRows(w, phased::ActionRows(in, result));
      w.Raw(",\"messages\":");
      w.Strings(host.messages->messages(), 0);
      w.Raw("}");
      w.Flush();
      out.Send(res);
      // What the plan was made from goes back to the system; the plan stays.
      if (in.items.size() > kLargeReportRows) malloc_trim(0);
    });
  });

  s.Get(R"(/api/phased/(\d+)/buckets)",
        [guarded, last_plan](const httplib::Request& req, httplib::Response& res) {
          guarded(res, [&] {
            const auto entry = last_plan(req.matches[1].str());
            const std::string size = req.has_param("size") ? req.get_param_value("size") : "week";
            AnswerTable(res, phased::BucketRows(entry->plan, size, IntParam(req, "item")));
          });
        });

  s.Get(R"(/api/phased/(\d+)/orders)",
        [this, guarded, last_plan](const httplib::Request& req, httplib::Response& res) {
          guarded(res, [&] {
            const auto entry = last_plan(req.matches[1].str());
            const int32_t item = req.has_param("item") ? IntParam(req, "item") : 0;
            AnswerTable(res, phased::OrderRowsOf(entry->plan, item, req.get_param_value("kind"),
                                                 English(RequestHost())));
          });
        });

  s.Get(R"(/api/phased/(\d+)/order/(\d+))",
        [this, guarded, last_plan](const httplib::Request& req, httplib::Response& res) {
          guarded(res, [&] {
            const auto entry = last_plan(req.matches[1].str());
            const size_t n = std::stoul(req.matches[2].str());
            const phased::Input& in = entry->plan->input;
            const phased::Result& result = entry->plan->result;
            const auto& orders = result.orders;
            if (n >= orders.size()) {
              throw Error(ErrorCategory::kNotFound, "the plan has no order " + std::to_string(n));
            }
            Json reasons = Json::array(), pegs = Json::array();
            for (const phased::Reason& r : phased::Reasons(in, result, orders[n])) {
              reasons.push_back(r.text(!English(RequestHost())));
            }
            // The order's place among its item's orders.
            size_t first = n;
            while (first > 0 && orders[first - 1].item == orders[n].item) --first;
            const auto item_pegs = phased::Pegs(in, result, orders[n].item);
            for (const phased::Requirement& p : item_pegs.at(n - first)) {
              pegs.push_back({phased::SourceText(in, result, p), phased::DateOf(p.day).ToDateString(),
                              p.qty});
            }
            Answer(res, 200,
                   Json{{"reasons", reasons},
                        {"pegs", {{"columns", {"FSource", "FDate", "FQty"}}, {"rows", pegs}}}}
                       .dump());
          });
        });

  s.Get("/api/phased/runs", [this, guarded](const httplib::Request&, httplib::Response& res) {
    guarded(res, [&] {
      PooledSession c(*pool_, options_.dsn);
      AnswerTable(res, phased::RunRows(repo::ReadRuns(*c)));
    });
  });

  s.Get("/api/phased/diff", [this, guarded](const httplib::Request& req, httplib::Response& res) {
    guarded(res, [&] {
      const int32_t before = IntParam(req, "before"), after = IntParam(req, "after");
      PooledSession c(*pool_, options_.dsn);
      for (int32_t id : {before, after}) {
        if (!repo::ReadRun(*c, id)) {
          throw Error(ErrorCategory::kNotFound, "no run " + std::to_string(id));
        }
      }
      AnswerTable(res, phased::ChangeRows(repo::ReadRunOrders(*c, before),
                                          repo::ReadRunOrders(*c, after)));
    });
  });

  s.Get("/api/phased/params", [this, guarded](const httplib::Request& req, httplib::Response& res) {
    guarded(res, [&] {
      PooledSession c(*pool_, options_.dsn);
      std::vector<int32_t> items;
      if (req.has_param("item")) items.push_back(repo::ItemIdByNumber(*c, req.get_param_value("item")));
      Json rows = Json::array();
      for (const auto& p : repo::ReadPlanningParameters(*c, items)) {
        rows.push_back({{"item", p.item}, {"supplier", p.supplier}, {"lead_time", p.lead_time},
                        {"make_time", p.production_lead_time},
                        {"make_time_per_unit", p.production_lead_per_unit},
                        {"safety", p.safety_qty}, {"safety_days", p.safety_days},
                        {"min", p.min_qty}, {"multiple", p.multiple}, {"max", p.max_qty},
                        {"period", p.order_period}, {"fence", p.firm_fence}});
      }
      Answer(res, 200, rows.dump());
    });
  });

  s.Put("/api/phased/params", [this, guarded](const httplib::Request& req, httplib::Response& res) {
    Json body;
    if (!ParseBody(req, res, body)) return;
    guarded(res, [&] {
      if (!body.is_object() || !body.contains("item")) {
        ThrowInvalid("the body must be an object naming the \"item\" by its code");
      }
      PooledSession c(*pool_, options_.dsn);
      db::Transaction tx(*c);
      phased::PlanningParameters p;
      p.item = repo::ItemIdByNumber(*c, body.at("item").get<std::string>());
      const std::string supplier = body.value("supplier", std::string());
      p.supplier = supplier.empty() ? 0 : repo::SupplierIdByNumber(*c, supplier);
      p.lead_time = body.value("lead_time", 0);
      p.production_lead_time = body.value("make_time", 0);
      p.production_lead_per_unit = body.value("make_time_per_unit", 0.0);
      p.safety_qty = body.value("safety", 0.0);
      p.safety_days = body.value("safety_days", 0.0);
      p.min_qty = body.value("min", 0.0);
      p.multiple = body.value("multiple", 0.0);
      p.max_qty = body.value("max", 0.0);
      p.order_period = body.value("period", 0);
      p.firm_fence = body.value("fence", 0);
      repo::WritePlanningParameters(*c, p);
      tx.Commit();
      Answer(res, 200, Json{{"item", p.item}, {"supplier", p.supplier}}.dump());
    });
  });

  s.Delete("/api/phased/params", [this, guarded](const httplib::Request& req,
                                                  httplib::Response& res) {
    guarded(res, [&] {
      PooledSession c(*pool_, options_.dsn);
      db::Transaction tx(*c);
      const int32_t item = repo::ItemIdByNumber(*c, req.get_param_value("item"));
      const std::string supplier = req.get_param_value("supplier");
      const int32_t supplier_id = supplier.empty() ? 0 : repo::SupplierIdByNumber(*c, supplier);
      if (!repo::DeletePlanningParameters(*c, item, supplier_id)) {
        throw Error(ErrorCategory::kNotFound, "the item has no such planning parameters");
      }
      tx.Commit();
      Answer(res, 200, Json{{"deleted", true}}.dump());
    });
  });

  auto calendar_json = [](const phased::Calendar& calendar) {
    Json holidays = Json::array();
    for (phased::Day h : calendar.holidays) holidays.push_back(phased::DateOf(h).ToDateString());
    return Json{{"working", calendar.working}, {"holidays", holidays}}.dump();
  };
  s.Get("/api/phased/calendar",
        [this, guarded, calendar_json](const httplib::Request&, httplib::Response& res) {
          guarded(res, [&] {
            PooledSession c(*pool_, options_.dsn);
            Answer(res, 200, calendar_json(repo::ReadCalendar(*c)));
          });
        });
  s.Put("/api/phased/calendar",
        [this, guarded, calendar_json](const httplib::Request& req, httplib::Response& res) {
          Json body;
          if (!ParseBody(req, res, body)) return;
          guarded(res, [&] {
            if (!body.is_object()) ThrowInvalid("the body must be an object");
            PooledSession c(*pool_, options_.dsn);
            db::Transaction tx(*c);
            if (body.contains("working")) {
              const Json& working = body.at("working");
              if (!working.is_array() || working.size() != 7) {
                ThrowInvalid("\"working\" lists seven weekdays, Monday first, true or false");
              }
              std::array<bool, 7> week{};
              for (size_t d = 0; d < 7; ++d) week[d] = working[d].get<bool>();
              repo::WriteWorkingWeek(*c, week);
            }
            for (const auto& h : body.value("add", Json::array())) {
              repo::AddHoliday(*c, phased::ParseDay(h.get<std::string>(), "add"));
            }
            for (const auto& h : body.value("remove", Json::array())) {
              repo::RemoveHoliday(*c, phased::ParseDay(h.get<std::string>(), "remove"));
            }
            tx.Commit();
            Answer(res, 200, calendar_json(repo::ReadCalendar(*c)));
          });
        });
}

}  // namespace mrpcalc::http
