// Time-phased planning on in-memory items, against a plan worked out by
// hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

#include "expect_error.h"
#include "record/json.h"
#include "record/text.h"
#include "mrp/phased.h"
#include "mrp/phased_rows.h"

namespace mrpcalc::mrp::phased {
namespace {

// Monday 2026-11-30 is day 0 of the example; Thursday 2026-12-03 is a
// holiday.
Day D(int offset) { return DayOf(Date::FromParts(2026, 11, 30)) + offset; }

// The textbook example, worked out by hand, pinned in
// tests/scenarios/phased_textbook.json: its input and the plan expected.
Json Scenario() {
  std::ifstream file(std::string(MRPCALC_TEST_DATA_DIR) + "/scenarios/phased_textbook.json");
  return Json::parse(file);
}

Day DayText(const Json& text) { return DayOf(*Date::Parse(text.get<std::string>())); }

Input Textbook() {
  const Json s = Scenario();
  Input in;
  in.today = DayText(s["today"]);
  for (size_t d = 0; d < 7; ++d) in.calendar.working[d] = s["working"][d];
  for (const auto& h : s["holidays"]) in.calendar.holidays.insert(DayText(h));
  in.sources = s["sources"].get<std::vector<std::string>>();
  for (const auto& j : s["items"]) {
    Item item;
    item.id = j["id"];
    item.number = j["number"];
    item.made = j["made"];
    item.on_hand = j["on_hand"];
    Parameters& p = item.parameters;
    p.lead_time = j.value("lead_time", 0);
    p.safety_stock = j.value("safety_stock", 0.0);
    p.min_qty = j.value("min_qty", 0.0);
    p.multiple = j.value("multiple", 0.0);
    for (const auto& d : j.value("demand", Json::array()))
      item.demand.push_back({DayText(d["day"]), d["source"], d["qty"]});
    for (const auto& r : j.value("receipts", Json::array()))
      item.receipts.push_back({r["id"], DayText(r["day"]), r["qty"]});
    for (const auto& c : j.value("components", Json::array()))
      item.components.push_back({c["item"], c["qty_per"]});
    in.items.push_back(std::move(item));
  }
  return in;
}

// The whole plan of the example as the scenario expects it: every order
// with its reasons and pegging, every action message.
TEST(Phased, TheTextbookScenarioFile) {
  const Input in = Textbook();
  const Result r = Plan(in);
  const Json want = Scenario()["expect"];
  Json orders = Json::array();
  for (size_t k = 0; k < r.orders.size(); ++k) {
    const PlannedOrder& o = r.orders[k];
    Json reasons = Json::array(), pegs = Json::array();
    for (const Reason& x : Reasons(in, r, o)) reasons.push_back(x.text());
    size_t first = k;
    while (first > 0 && r.orders[first - 1].item == o.item) --first;
    const auto item_pegs = Pegs(in, r, o.item);
    for (const Requirement& p : item_pegs.at(k - first))
      pegs.push_back(SourceText(in, r, p) + " " + FormatDouble(p.qty));
    orders.push_back({{"item", FindItem(in, o.item)->number}, {"qty", o.qty},
                      {"due", DateOf(o.due).ToDateString()},
                      {"release", DateOf(o.release).ToDateString()}, {"late", o.late},
                      {"reasons", reasons}, {"pegs", pegs}});
  }
  EXPECT_EQ(orders, want["orders"]) << orders.dump(1);
  Json actions = Json::array();
  for (const ActionMessage& a : r.actions) {
    Json one = {{"kind", a.kind}, {"item", FindItem(in, a.item)->number}, {"receipt", a.receipt},
                {"from", DateOf(a.from).ToDateString()}};
    if (a.kind != "cancel") one["to"] = DateOf(a.to).ToDateString();
    one["qty"] = a.qty;
    actions.push_back(one);
  }
  EXPECT_EQ(actions, want["actions"]) << actions.dump(1);
}

std::vector<std::string> Codes(const Input& in, const Result& r, const PlannedOrder& o) {
  std::vector<std::string> out;
  for (const Reason& x : Reasons(in, r, o)) out.push_back(std::string(x.code) + " " + x.text());
  return out;
}

// The pegs of the k-th order in the plan.
std::vector<Requirement> PegsOf(const Input& in, const Result& r, size_t k) {
  size_t first = k;
  while (first > 0 && r.orders[first - 1].item == r.orders[k].item) --first;
  return Pegs(in, r, r.orders[k].item).at(k - first);
}

TEST(Phased, TheTextbookExample) {
  const Input in = Textbook();
  const Result r = Plan(in);
  EXPECT_EQ(r.low_level, (std::map<int32_t, int>{{1, 0}, {2, 1}, {3, 2}, {4, 0}}));
  ASSERT_EQ(r.orders.size(), 4u);

  // A: 5 short on Tuesday, released two working days before: Friday the
  // 27th, three days late; 20 for the 8th, released on Friday the 4th.
  const PlannedOrder& a1 = r.orders[0];
  EXPECT_EQ(a1.item, 1);
  EXPECT_DOUBLE_EQ(a1.qty, 5);
  EXPECT_EQ(a1.due, D(1));
  EXPECT_EQ(a1.release, D(-3));
  EXPECT_TRUE(a1.late);
  EXPECT_EQ(Codes(in, r, a1), (std::vector<std::string>{"net net requirement 5",
                                                 "lead lead time 2 working days",
                                                 "late 3 days late"}));
  const auto a1_pegs = PegsOf(in, r, 0);
  ASSERT_EQ(a1_pegs.size(), 1u);
  EXPECT_EQ(SourceText(in, r, a1_pegs[0]), "SO-1/1");
  EXPECT_DOUBLE_EQ(a1_pegs[0].qty, 5);
  const PlannedOrder& a2 = r.orders[1];
  EXPECT_DOUBLE_EQ(a2.qty, 20);
  EXPECT_EQ(a2.due, D(8));
  EXPECT_EQ(a2.release, D(4));
  EXPECT_FALSE(a2.late);

  // B needs 10 when A's first order starts (covered, 5 left for safety)
  // and 40 when its second starts, on Friday: with the task deferred to
  // Friday, 5 short and 5 under safety stock, raised to 50; released one
  // working day before Friday, past the holiday: Wednesday.
  const PlannedOrder& b = r.orders[2];
  EXPECT_EQ(b.item, 2);
  EXPECT_DOUBLE_EQ(b.qty, 50);
  EXPECT_EQ(b.due, D(4));
  EXPECT_EQ(b.release, D(2));
  EXPECT_EQ(Codes(in, r, b), (std::vector<std::string>{"net net requirement 5", "safety safety stock 5",
                                                "multiple rounded up to a multiple of 50",
                                                "lead lead time 1 working days"}));
  const auto b_pegs = PegsOf(in, r, 2);
  ASSERT_EQ(b_pegs.size(), 1u);
  EXPECT_DOUBLE_EQ(b_pegs[0].qty, 5);
  EXPECT_EQ(SourceText(in, r, b_pegs[0]), "planned A due 2026-12-08");

  // C: 5 (A's first order), 150 (B's order, from Wednesday), 20 (A's
  // second) are covered by stock and the order of 160 brought forward; 35
  // of the 60 on the 9th are not: raised to the minimum 100, released three
  // working days before: Friday the 4th.
  const PlannedOrder& c = r.orders[3];
  EXPECT_EQ(c.item, 3);
  EXPECT_DOUBLE_EQ(c.qty, 100);
  EXPECT_EQ(c.due, D(9));
  EXPECT_EQ(c.release, D(4));
  EXPECT_EQ(Codes(in, r, c)[0], "net net requirement 35");
  EXPECT_EQ(Codes(in, r, c)[1], "minimum raised to the minimum 100");
  const auto c_pegs = PegsOf(in, r, 3);
  ASSERT_EQ(c_pegs.size(), 1u);
  EXPECT_DOUBLE_EQ(c_pegs[0].qty, 35);
  EXPECT_EQ(SourceText(in, r, c_pegs[0]), "SO-3/1");

  // The open supply: the task comes too early, the order too late, and D's
  // order is not needed at all.
  ASSERT_EQ(r.actions.size(), 3u);
  const auto& [defer, expedite, cancel] = std::tie(r.actions[0], r.actions[1], r.actions[2]);
  EXPECT_EQ(defer.kind, "defer");
  EXPECT_EQ(defer.receipt, "MO-1");
  EXPECT_EQ(defer.to, D(4));
  EXPECT_EQ(expedite.kind, "expedite");
  EXPECT_EQ(expedite.receipt, "PO-1");
  EXPECT_EQ(expedite.from, D(10));
  EXPECT_EQ(expedite.to, D(2));
  EXPECT_EQ(cancel.kind, "cancel");
  EXPECT_EQ(cancel.receipt, "PO-3");
}

// The textbook record of C by weeks from Monday the 30th: the needs of its
// parents' orders and its own, the order of 160 brought forward, the
// planned order of 100 due the 9th and released the 4th.
TEST(Phased, TheTextbookRecordOfC) {
  const Input in = Textbook();
  const Result r = Plan(in);
  // Before the first week: A's late order needs 5 on Friday the 27th.
  const std::vector<Bucket> weeks = Buckets(in, r, 3, D(0), 7, 2);
  ASSERT_EQ(weeks.size(), 2u);
  EXPECT_DOUBLE_EQ(weeks[0].gross, 170);  // 150 for B on the 2nd, 20 for A on the 4th
  EXPECT_DOUBLE_EQ(weeks[0].scheduled, 160);
  EXPECT_DOUBLE_EQ(weeks[0].net, 0);
  EXPECT_DOUBLE_EQ(weeks[0].projected, 25);  // 40 - 5 + 160 - 170
  EXPECT_DOUBLE_EQ(weeks[0].planned_releases, 100);
  EXPECT_DOUBLE_EQ(weeks[1].gross, 60);
  EXPECT_DOUBLE_EQ(weeks[1].net, 35);
  EXPECT_DOUBLE_EQ(weeks[1].planned_receipts, 100);
  EXPECT_DOUBLE_EQ(weeks[1].projected, 65);
  EXPECT_ERROR(Buckets(in, r, 99, D(0), 7, 1), ErrorCategory::kNotFound, "no planned item");
}

TEST(Phased, RulesAndCalendar) {
  // The maximum splits; the order period groups; days convert both ways.
  Input in;
  in.today = D(0);
  Item x{7, "X", false, {}, 0, {}, {{D(1), 0, 30}, {D(2), 0, 30}, {D(9), 0, 10}}, {}};
  x.parameters.max_qty = 40;
  x.parameters.order_period = 5;
  in.items = {x};
  const Result r = Plan(in);
  ASSERT_EQ(r.orders.size(), 3u);  // 60 for the period split 40 + 20, then 10
  EXPECT_DOUBLE_EQ(r.orders[0].qty, 40);
  EXPECT_DOUBLE_EQ(r.orders[1].qty, 20);
  EXPECT_DOUBLE_EQ(r.orders[2].qty, 10);
  double pegged = 0;
  for (const auto& pegs : Pegs(in, r, 7))
    for (const auto& p : pegs) pegged += p.qty;
  EXPECT_DOUBLE_EQ(pegged, 70);
  EXPECT_EQ(DateOf(D(0)).ToDateString(), "2026-11-30");
  EXPECT_EQ(DateOf(DayOf(Date::FromParts(1900, 3, 1))).ToDateString(), "1900-03-01");
  Calendar weekdays;
  EXPECT_EQ(weekdays.WorkingDaysBefore(D(5), 0), D(4));  // Saturday: the Friday before
  EXPECT_EQ(weekdays.WorkingDaysAfter(D(4), 1), D(7));   // Friday to Monday

  Item loop{8, "L", true, {}, 0, {}, {{D(1), 0, 1}}, {{9, 1}}};
  Item back{9, "M", true, {}, 0, {}, {}, {{8, 1}}};
  Input cyclic;
  cyclic.items = {loop, back};
  EXPECT_ERROR(Plan(cyclic), ErrorCategory::kInvalidInput, "lead back");
}

}  // namespace
}  // namespace mrpcalc::mrp::phased

namespace mrpcalc::mrp::phased {
namespace {

// Random factories: every planned order keeps its item's lot rules and is
// released on a working day; after the planned receipts the stock never
// falls below safety on a day something is needed; every need is covered
// by stock, open supply or a planned order's pegs, to the unit.
TEST(Phased, PropertiesOnRandomFactories) {
  std::mt19937 random(20261124);
  auto uniform = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
  for (int round = 0; round < 200; ++round) {
    Input in;
    in.today = D(0);
    in.calendar.holidays = {D(uniform(0, 20))};
    const int count = uniform(2, 8);
    for (int id = 1; id <= count; ++id) {
      Item item;
      item.id = id;
      item.number = "I" + std::to_string(id);
      item.on_hand = uniform(0, 50);
      Parameters& p = item.parameters;
      p.lead_time = uniform(0, 4);
      p.safety_stock = uniform(0, 1) ? uniform(0, 10) : 0;
      p.min_qty = uniform(0, 1) ? uniform(1, 60) : 0;
      p.multiple = uniform(0, 1) ? uniform(1, 25) : 0;
      p.max_qty = uniform(0, 2) == 0 ? uniform(30, 90) : 0;
      p.order_period = uniform(0, 2) == 0 ? uniform(1, 7) : 0;
      for (int n = uniform(0, 4); n > 0; --n) {
        item.demand.push_back({D(uniform(-3, 30)), 0, static_cast<double>(uniform(1, 40))});
      }
      for (int n = uniform(0, 2); n > 0; --n) {
        item.receipts.push_back({"r", D(uniform(-2, 30)), static_cast<double>(uniform(1, 50))});
      }
      // Components only further down: no loops.
      for (int child = id + 1; child <= count; ++child) {
        if (uniform(0, 3) == 0) item.components.push_back({child, static_cast<double>(uniform(1, 3))});
      }
      item.made = !item.components.empty();
      in.items.push_back(item);
    }
    in.sources = {"d"};
    const Result r = Plan(in);
    std::map<int32_t, const Item*> items;
    std::map<int32_t, std::vector<std::vector<Requirement>>> pegs;
    for (const Item& i : in.items) pegs[i.id] = Pegs(in, r, i.id);
    std::map<int32_t, size_t> seen;  // orders of each item met so far
    for (const Item& i : in.items) items[i.id] = &i;
    for (const PlannedOrder& o : r.orders) {
      const Parameters& p = items[o.item]->parameters;
      SCOPED_TRACE("round " + std::to_string(round) + ", item " + std::to_string(o.item));
      EXPECT_GT(o.qty, 0);
      if (p.max_qty > 0) {
        EXPECT_LE(o.qty, p.max_qty + 1e-9);
      }
      const bool split = (o.rules & kMaximumRule) != 0;
      if (p.min_qty > 0 && !split) {
        EXPECT_GE(o.qty, p.min_qty - 1e-9);
      }
      if (p.multiple > 0 && !split) {
        EXPECT_NEAR(std::fmod(o.qty, p.multiple), 0, 1e-6);
      }
      EXPECT_TRUE(in.calendar.IsWorking(o.release));
      EXPECT_EQ(o.late, o.release < in.today);
      double pegged = 0;
      for (const auto& peg : pegs[o.item].at(seen[o.item]++)) pegged += peg.qty;
      EXPECT_LE(pegged, o.qty + 1e-9);
    }
    for (const Item& item : in.items) {
      SCOPED_TRACE("round " + std::to_string(round) + ", item " + std::to_string(item.id));
      // The pegs of the item's orders add up to the need that stock and
      // open supply leave uncovered, taken first come, first served.
      double need = 0, covered = item.on_hand, pegged = 0;
      for (const auto& n : r.gross.at(item.id)) need += n.qty;
      for (const auto& rc : item.receipts) covered += rc.qty;
      for (const auto& order_pegs : pegs[item.id]) {
        for (const auto& p : order_pegs) pegged += p.qty;
      }
      EXPECT_NEAR(pegged, std::max(0.0, need - std::max(0.0, covered)), 1e-6);
      // Day by day: stock, open supply as planned and planned receipts
      // against every need, never under safety stock where something is needed.
      std::map<Day, double> flow;
      for (const auto& need : r.gross.at(item.id)) flow[need.day] -= need.qty;
      for (const auto& s : r.scheduled.count(item.id) ? r.scheduled.at(item.id) : std::vector<Receipt>{})
        flow[s.day] += s.qty;
      for (const PlannedOrder& o : r.orders)
        if (o.item == item.id) flow[o.due] += o.qty;
      double stock = item.on_hand;
      for (const auto& [day, change] : flow) {
        stock += change;
        const bool needed = std::any_of(r.gross.at(item.id).begin(), r.gross.at(item.id).end(),
                                        [&, day = day](const Requirement& n) { return n.day == day; });
        if (needed) {
          EXPECT_GE(stock, item.parameters.safety_stock - 1e-6) << "day " << day;
        }
      }
    }
  }
}

}  // namespace
}  // namespace mrpcalc::mrp::phased

namespace mrpcalc::mrp::phased {
namespace {

// Safety stock as days of cover, bucket bounds by week and month, and what
// changed between two runs.
TEST(Phased, DaysOfCoverBoundsAndChanges) {
  Input in;
  in.today = D(0);
  in.sources = {"SO"};
  Item x{1, "X", false, {}, 0, {}, {}, {}};
  for (int d = 0; d < 10; ++d) x.demand.push_back({D(d), 0, 10});
  x.parameters.safety_days = 2;  // 100 over ten days: 20
  x.parameters.max_qty = 0;
  in.items = {x};
  const Result r = Plan(in);
  EXPECT_DOUBLE_EQ(r.safety.at(1), 20);
  ASSERT_FALSE(r.orders.empty());
  EXPECT_DOUBLE_EQ(r.orders[0].qty, 30);  // the day's 10 and the 20 of cover
  EXPECT_EQ(Reasons(in, r, r.orders[0])[1].text(), "safety stock 20");
  double planned = 0;
  for (const auto& o : r.orders) planned += o.qty;
  EXPECT_DOUBLE_EQ(planned, 120);

  // Weeks start on Monday; months on the first.
  const Day wednesday = DayOf(Date::FromParts(2026, 12, 2));
  const auto weeks = BucketBounds("week", wednesday, wednesday + 6);
  ASSERT_EQ(weeks.size(), 3u);
  EXPECT_EQ(DateOf(weeks[0]).ToDateString(), "2026-11-30");
  EXPECT_EQ(DateOf(weeks[2]).ToDateString(), "2026-12-14");
  const auto months = BucketBounds("month", DayOf(Date::FromParts(2026, 11, 15)),
                                   DayOf(Date::FromParts(2027, 1, 3)));
  std::vector<std::string> firsts;
  for (Day d : months) firsts.push_back(DateOf(d).ToDateString());
  EXPECT_EQ(firsts, (std::vector<std::string>{"2026-11-01", "2026-12-01", "2027-01-01", "2027-02-01"}));
  const auto bucket_row = Buckets(in, r, 1, months);
  double gross = 0;
  for (const auto& b : bucket_row) gross += b.gross;
  EXPECT_DOUBLE_EQ(gross, 100);
  EXPECT_ERROR(BucketBounds("fortnight", 0, 1), ErrorCategory::kInvalidInput, "fortnight");

  auto order = [](int32_t item, int due, double qty) {
    PlannedOrder o;
    o.item = item;
    o.due = D(due);
    o.qty = qty;
    return o;
  };
  const std::vector<PlannedOrder> before = {order(1, 1, 10), order(1, 5, 10), order(2, 3, 5),
                                            order(4, 2, 7)};
  const std::vector<PlannedOrder> after = {order(1, 6, 10), order(1, 1, 10), order(2, 4, 8),
                                           order(3, 2, 1)};
  std::vector<std::string> seen;
  for (const Change& c : Compare(before, after)) {
    seen.push_back(std::to_string(c.item) + " " + c.kind);
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"1 moved", "2 moved and resized", "3 added",
                                            "4 removed"}));
  EXPECT_TRUE(Compare(after, after).empty());
}

}  // namespace
}  // namespace mrpcalc::mrp::phased
