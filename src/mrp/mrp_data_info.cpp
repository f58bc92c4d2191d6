// MrpDataInfo: loads the calculation's input, runs the core, shapes rows.
#include "mrp/mrp_data_info.h"

#include "mrp/phased_bridge.h"
#include "mrp/phased_repository.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <set>
#include <thread>
#include <unordered_map>

#include "mrp/calculation.h"
#include "mrp/loader.h"
#include "record/text.h"
#include "services/messages.h"
#include "services/profile.h"
#include "services/rights.h"

namespace mrpcalc {
namespace {

constexpr const char* kMessageCaption = "Zorvik提示";

// Below this many demand lines the reads a second session could take off
// the first cost less than opening it (a login, on a server).
constexpr int32_t kLinesForSideReads = 1000;

// A switch of dctFilter is on when it equals 1 (a Boolean True counts too).
bool SwitchOn(const DictionaryPtr& filter, const char* key) {
  const Variant v = filter->Get(key);
  if (const bool* b = v.AsBoolean()) return *b;
  return v.ToValue() == 1;
}

void Put(CellVisitor& cells, const mrp::OptInt& v) { v ? cells.Long(*v) : cells.Null(); }
void Put(CellVisitor& cells, const mrp::OptNum& v) { v ? cells.Double(*v) : cells.Null(); }
void Put(CellVisitor& cells, const mrp::OptText& v) { v ? cells.Text(*v) : cells.Null(); }
void Put(CellVisitor& cells, const std::optional<Date>& v) {
  v ? cells.DateValue(*v) : cells.Null();
}

// The report's rows as the calculation leaves them: the answer is written
// from these, and only a caller that asks for the rows gets Dictionaries.
class ReportSource final : public RowSource {
 public:
  // `working`: what the rows were worked out from, dropped with them.
  ReportSource(mrp::ReportRows rows, std::shared_ptr<const void> working)
      : rows_(std::move(rows)), working_(std::move(working)) {}
  size_t size() const override { return rows_.size(); }
  const KeyList& keys() const override {
    static const KeyList keys = MakeKeyList(mrp::ReportColumns());
    return keys;
  }
  void Visit(size_t i, CellVisitor& c) const override {
    const mrp::ReportRow& r = rows_[i];
    for (const mrp::OptInt* v : {&r.item_id, &r.bom_item_id, &r.inter_id, &r.entry_id,
                                 &r.bom_inter_id, &r.bom_entry_id, &r.tran_type, &r.item_prop_id})
      Put(c, *v);
    for (const mrp::OptText* v : {&r.item_prop, &r.item_number, &r.item_name, &r.item_model})
      Put(c, *v);
    Put(c, r.aux_prop_id);
    Put(c, r.aux_prop);
    Put(c, r.unit_id);
    Put(c, r.unit_name);
    Put(c, r.destroy_rate);
    Put(c, r.qty_decimal);
    for (const mrp::OptNum* v :
         {&r.need_qty, &r.save_qty, &r.current_qty, &r.moving_qty, &r.unstock_qty, &r.producing_qty,
          &r.produc_qty, &r.mid_stock_qty, &r.suggest_qty, &r.qty})
      Put(c, *v);
    for (const mrp::OptText* v : {&r.source_no, &r.supply_number, &r.supply_name, &r.memo})
      Put(c, *v);
    Put(c, r.final);
    Put(c, r.date);
  }

 private:
  mrp::ReportRows rows_;
  std::shared_ptr<const void> working_;
};

// A demand line as the calculation takes it, or what making it raised.
struct LineRecord {
  mrp::DemandLine line;
  std::exception_ptr error;
};

std::vector<LineRecord> MakeRecords(const Vector& lines,
                                    const std::vector<std::vector<std::string>>& numbers,
                                    const mrp::DemandDates& dates) {
  std::vector<LineRecord> out(lines.rows().size());
  for (size_t i = 0; i < out.size(); ++i) {
    try {
      const DictionaryPtr& row = lines.rows()[i];
      mrp::DemandLine& d = out[i].line;
      d.tran_type = row->Get("Ftrantype").ToLong();
      d.item_id = row->Get("FItemID").ToLong();
      d.inter_id = row->Get("FinterID").ToLong();
      d.entry_id = row->Get("FEntryID").ToLong();
      d.bill_no = row->Get("FBillNo").ToText();
      d.qty = row->Get("FQty").ToDouble();
      d.date = dates.For(numbers[i]);
    } catch (...) {
      out[i].error = std::current_exception();
    }
  }
  return out;
}

std::vector<std::string> BillNumbers(const std::string& bill_no) {
  std::vector<std::string> out;
  std::string rest = bill_no;
  do {
    out.push_back(SplitFirst(rest, "/"));
  } while (!rest.empty());
  return out;
}

}  // namespace

int MrpDataInfo::BomType(db::Connection& c) {
  if (!bom_type_) {
    bom_type_ = static_cast<int>(Variant(GetSystemProfile(c, "IC", "BOMType", "1")).ToValue());
  }
  return *bom_type_;
}

VectorPtr MrpDataInfo::GetMrpReportData(const std::string& dsn, const VectorPtr& lines,
                                        const DictionaryPtr& dctFilter, const std::string& sStockKey,
                                        int32_t user_id, int frm_type) {
  return Report(dsn, lines, dctFilter, sStockKey, user_id, frm_type, nullptr);
}

MrpDataInfo::PeggedReport MrpDataInfo::GetMrpReportPegged(const std::string& dsn,
                                                          const VectorPtr& lines,
                                                          const DictionaryPtr& dctFilter,
                                                          const std::string& sStockKey,
                                                          int32_t user_id, int frm_type) {
  PeggedReport out;
  out.rows = Report(dsn, lines, dctFilter, sStockKey, user_id, frm_type, &out.pegging);
  return out;
}

mrp::ReportArguments MrpDataInfo::ArgumentsFor(const std::string& dsn,
                                               const mrp::ReportRequest& request) {
  return Run(dsn, [&](db::Connection& c) { return mrp::ArgumentsOf(c, request); });
}

namespace {

mrp::ReportArguments DemandOf(MrpDataInfo& info, const std::string& dsn,
                              const mrp::ReportRequest& request) {
  mrp::ReportArguments arguments = info.ArgumentsFor(dsn, request);
  if (arguments.lines->Count() == 0) ThrowInvalid("no open demand matches the bills given");
  return arguments;
}

}  // namespace

VectorPtr MrpDataInfo::GetMrpReportFor(const std::string& dsn, const mrp::ReportRequest& r) {
  const mrp::ReportArguments a = DemandOf(*this, dsn, r);
  return GetMrpReportData(dsn, a.lines, a.filter, r.warehouses, r.user, r.form);
}

MrpDataInfo::PeggedReport MrpDataInfo::GetMrpReportPeggedFor(const std::string& dsn,
                                                             const mrp::ReportRequest& r) {
  const mrp::ReportArguments a = DemandOf(*this, dsn, r);
  return GetMrpReportPegged(dsn, a.lines, a.filter, r.warehouses, r.user, r.form);
}

MrpDataInfo::PeggedByLine MrpDataInfo::GetMrpReportPeggedByLineFor(
    const std::string& dsn, const mrp::ReportRequest& r) {
  const mrp::ReportArguments a = DemandOf(*this, dsn, r);
  PeggedByLine out;
  out.rows = Report(dsn, a.lines, a.filter, r.warehouses, r.user, r.form, nullptr, &out);
  return out;
}

VectorPtr MrpDataInfo::Report(const std::string& dsn, const VectorPtr& lines,
                              const DictionaryPtr& dctFilter, const std::string& sStockKey,
                              int32_t user_id, int frm_type, std::vector<VectorPtr>* pegging,
                              PeggedByLine* by_line,
                              const std::function<void(db::Connection&, mrp::Input&,
                                                       const mrp::BomIndex&)>* instead) {
  using Clock = std::chrono::steady_clock;
  const auto started = Clock::now();
  return Run(dsn, [&](db::Connection& c) {
    if (!lines) ThrowInvalid("vctListData is Nothing: the MRP calculation needs demand lines");
    const DictionaryPtr filter = dctFilter ? dctFilter : Dictionary::Create();
    // The input and the index over its bills live as long as the answer:
    // the caller waits for the answer, and freeing a factory's items and
    // bills before it is written costs that caller some milliseconds.
    struct Working {
      mrp::Input in;
      std::optional<const mrp::BomIndex> boms;
    };
    const auto working = std::make_shared<Working>();
    mrp::Input& in = working->in;
    mrp::Options& o = in.options;
    o.task = mrp::TaskKindFromSubId(filter->GetOr("SubID", int32_t{0}).ToText());
    o.expand = SwitchOn(filter, "Expand");
    o.user_id = user_id;
    o.frm_type = frm_type;
    o.peg = pegging != nullptr || by_line != nullptr;
    if (o.task.code == 0) {
      ThrowInvalid("dctFilter \"SubID\" must be \"SC\" (production tasks) or \"WW\" (outsourcing "
                   "tasks), not \"" + filter->Get("SubID").ToText() + "\"");
    }
    const std::vector<int32_t> warehouses =
        db::ParseIdList(Trim(sStockKey).empty() ? "0" : sStockKey, "warehouse list sStockKey");
    const bool count_virtual = filter->Get("Virtual").ToValue() != 0;
    // The required dates (of every line's bills: the lines dropped later
    // only leave some unused), stock and open orders depend on nothing the
    // bills bring. Where a second session may read them, it does, in that
    // order, while this one walks the bills; their errors surface where each
    // is taken, as if read there.
    std::vector<std::vector<std::string>> numbers;  // by line, dropped with the line
    for (const auto& row : lines->rows())
      numbers.push_back(BillNumbers(row->Get("FBillNo").ToText()));
    const Variant source = filter->Get("SourceData");
    mrp::DemandDates dates(source.AsVector(), numbers);
    std::promise<void> dates_read;
    std::promise<mrp::OpenSupply> supply_read;
    std::promise<std::optional<std::vector<LineRecord>>> records_made;
    std::future<void> dates_ready;
    std::future<mrp::OpenSupply> supply_ready;
    std::future<std::optional<std::vector<LineRecord>>> records_ready;
    std::jthread side_reads;
    std::function<db::ConnectionPtr()> open_reader;
    if (lines->Count() >= kLinesForSideReads) open_reader = context_->ReaderOpener();
    if (open_reader) {
      dates_ready = dates_read.get_future();
      supply_ready = supply_read.get_future();
      records_ready = records_made.get_future();
      // The second session logs in on its own thread too: a login that
      // fails fails the reads, and so the call where the dates are taken.
      side_reads = std::jthread([&, open_reader = std::move(open_reader)] {
        db::ConnectionPtr reader;
        try {
          reader = open_reader();
        } catch (...) {
          dates_read.set_exception(std::current_exception());
          supply_read.set_exception(std::current_exception());
          records_made.set_value(std::nullopt);
          return;
        }
        bool dated = false;
        try {
          dates.Load(*reader);
          dated = true;
          dates_read.set_value();
        } catch (...) {
          dates_read.set_exception(std::current_exception());
        }
        try {
          supply_read.set_value(mrp::LoadOpenSupply(*reader, warehouses, count_virtual));
        } catch (...) {
          supply_read.set_exception(std::current_exception());
        }
        // Meanwhile this session waits: the demand lines, every one (the
        // lines that loop are dropped from them later). Without dates the
        // dates' error is what the call raises, where it takes them.
        try {
          records_made.set_value(dated ? std::make_optional(MakeRecords(*lines, numbers, dates))
                                       : std::nullopt);
        } catch (...) {
          records_made.set_exception(std::current_exception());
        }
      });
    }

    std::vector<int32_t> demand_items, demand_tasks;
    for (const auto& row : lines->rows()) {
      demand_items.push_back(row->Get("FItemID").ToLong());
      if (row->Get("Ftrantype").ToLong() == o.task.code) demand_tasks.push_back(row->Get("FinterID").ToLong());
    }
    std::sort(demand_tasks.begin(), demand_tasks.end());
    demand_tasks.erase(std::unique(demand_tasks.begin(), demand_tasks.end()), demand_tasks.end());
    mrp::LoadTasks(c, demand_tasks, in);
    for (const auto& e : in.task_entries) demand_items.push_back(e.item_id);
    mrp::LoadBoms(c, demand_items, in);

    // The bills are all loaded: the index over them serves the loop check
    // and the calculation (later loads do not touch bills or items).
    const mrp::BomIndex& boms = working->boms.emplace(in);
    // The demand lines the other session made, of every line: the lines
    // change only once it has read them.
    std::optional<std::vector<LineRecord>> records;
    if (records_ready.valid()) records = records_ready.get();
    if (o.expand) {
      // Lines whose product's bills lead back to it are dropped, last first,
      // and named to the planner; the calculation goes on without them.
      std::string looping;
      for (int32_t i = lines->Count(); i >= 1; --i) {
        const DictionaryPtr& row = lines->Item(i);
        if (boms.LoopsBack(row->Get("FItemID").ToLong())) {
          looping += row->Get("FItemName").ToText() + "(" + row->Get("FItemNumber").ToText() + ")\r\n";
          lines->Remove(i);
          numbers.erase(numbers.begin() + (i - 1));
          if (records) records->erase(records->begin() + (i - 1));
        }
      }
      if (!looping.empty() && host_.messages) {
        host_.messages->Show(std::string(kBomLoopMessage) + "\r\n" + looping, kMessageCaption);
      }
    }
    o.bom_type = BomType(c);
    const bool count_unchecked =
        Variant(GetSystemProfile(c, "IC", "UPSTOCKWHENSAVE", "1")).ToValue() != 0;

    if (dates_ready.valid()) {
      dates_ready.get();
    } else {
      dates.Load(c);
    }
    if (!records) records = MakeRecords(*lines, numbers, dates);
    for (size_t i = 0; i < records->size(); ++i) {
      LineRecord& r = (*records)[i];
      if (r.error) std::rethrow_exception(r.error);
      in.demand.push_back(std::move(r.line));
      for (const auto& n : numbers[i]) in.demand_bill_numbers.push_back(n);
    }
    o.now_stock = SwitchOn(filter, "NowStock");
    o.save_stock = SwitchOn(filter, "SaveStock");
    o.moving = SwitchOn(filter, "Moving");
    o.unsale = SwitchOn(filter, "UnSale");
    o.producing = SwitchOn(filter, "Producing");
    o.produc = SwitchOn(filter, "Produc");
    o.mid_stock = SwitchOn(filter, "MidStockQty");
    mrp::LoadIssued(c, demand_tasks, count_unchecked, in);
    mrp::OpenSupply open = supply_ready.valid() ? supply_ready.get()
                                                : mrp::LoadOpenSupply(c, warehouses, count_virtual);
    in.stock = std::move(open.stock);
    in.moving = std::move(open.moving);
    in.unsold = std::move(open.unsold);
    mrp::LoadProducingAndHistory(c, in);
    if (frm_type == 0) {
      in.rights.administrator = IsAdministrator(c, user_id);
      in.rights.group_right = HoldsRightsGroupOneRight(c, user_id);
      in.rights.supplier_data_rights =
          host_.data_rights && host_.data_rights->Applies(user_id, kDataRightSuppliers);
    }
    // Another calculation over the same input (the time-phased plan).
    if (instead) {
      (*instead)(c, in, boms);
      return VectorPtr();
    }
    const auto loaded = Clock::now();
    mrp::ReportRows rows = mrp::Calculate(in, &boms);
    if (by_line) {
      by_line->demand = in.demand;
      by_line->pegs.reserve(rows.size());
      for (mrp::ReportRow& row : rows) by_line->pegs.push_back(std::move(row.pegs));
    }
    if (pegging) {
      static const KeyList peg_keys =
          MakeKeyList({"FTranType", "FBillNo", "FInterID", "FEntryID", "FItemID", "FQty"});
      for (mrp::ReportRow& row : rows) {
        auto pegs = Vector::Create();
        for (const mrp::Peg& p : row.pegs) {
          const mrp::DemandLine& d = in.demand[static_cast<size_t>(p.demand)];
          auto peg = Dictionary::Create(peg_keys);
          Variant cells[] = {d.tran_type, d.bill_no, d.inter_id, d.entry_id, d.item_id, p.qty};
          for (size_t i = 0; i < std::size(cells); ++i) peg->SetAt(i, std::move(cells[i]));
          pegs->Add(peg);
        }
        pegging->push_back(pegs);
        row.pegs = {};
      }
    }
    auto out = Vector::Create(std::make_shared<const ReportSource>(std::move(rows), working));
    timings_.load_seconds = std::chrono::duration<double>(loaded - started).count();
    timings_.calculate_seconds = std::chrono::duration<double>(Clock::now() - loaded).count();
    return out;
  });
}

MrpDataInfo::PhasedPlan MrpDataInfo::GetPhasedPlanFor(const std::string& dsn,
                                                       const mrp::ReportRequest& r,
                                                       mrp::phased::Day today) {
  mrp::ReportRequest request = r;
  request.single_level = false;  // the plan explodes every level
  const mrp::ReportArguments a = DemandOf(*this, dsn, request);
  PhasedPlan plan;
  // What the plan reads beside the report's input depends on nothing the
  // report loads: for a large demand a second session reads it meanwhile
  // (every parameter row, which the demand then mostly reaches). Where
  // that fails (our tables not made yet, say), this session reads it.
  auto read_sources = [today](db::Connection& c, const std::vector<int32_t>& items) {
    mrp::phased::Sources sources;
    sources.parameters = repo::ReadPlanningParameters(c, items);
    sources.calendar = repo::ReadCalendar(c);
    sources.supply = repo::ReadOpenSupply(c);
    sources.today = today;
    return sources;
  };
  std::future<mrp::phased::Sources> side;
  if (a.lines->Count() >= kLinesForSideReads) {
    if (auto open_reader = context_->ReaderOpener()) {
      side = std::async(std::launch::async, [open_reader, read_sources] {
        db::ConnectionPtr reader = open_reader();
        return read_sources(*reader, {});
      });
    }
  }
  const std::function<void(db::Connection&, mrp::Input&, const mrp::BomIndex&)> phased =
      [&](db::Connection& c, mrp::Input& in, const mrp::BomIndex& boms) {
        std::optional<mrp::phased::Sources> read;
        if (side.valid()) {
          try {
            read = side.get();
          } catch (const std::exception&) {
            read.reset();
          }
        }
        if (!read) {
          std::vector<int32_t> items;  // every item the bills name
          for (const auto& [id, item] : in.items) items.push_back(id);
          std::sort(items.begin(), items.end());
          read = read_sources(c, items);
        }
        const mrp::phased::Sources& sources = *read;
        plan.input = mrp::phased::FromErp(in, boms, sources);
        // The report's input has served: its memory goes before the plan
        // takes its own (nothing reads the input or its index after).
        { mrp::Input spent = std::move(in); }
        plan.result = mrp::phased::Plan(plan.input);
      };
  Report(dsn, a.lines, a.filter, request.warehouses, request.user, request.form, nullptr, nullptr,
         &phased);
  return plan;
}

void MrpDataInfo::GetBomAllChildRs(const std::string& dsn, int32_t bom_inter_id, int32_t p_item_id,
                                   double suggest_qty, double qty, const std::string& date_text) {
  Run(dsn, [&](db::Connection& c) {
    if (Trim(date_text).empty()) {
      ThrowInvalid("GetBomAllChildRs needs strDate, the required date of the rows");
    }
    const auto date = Date::Parse(date_text);
    if (!date) ThrowInvalid("strDate \"" + date_text + "\" is not a date");
    mrp::Input in;
    const Variant item = c.QueryValue("select FItemID from ICBOM where FInterID = ?", {bom_inter_id});
    if (!item.IsEmpty() && !item.IsNull()) mrp::LoadBoms(c, {item.ToLong()}, in);
    const mrp::BomIndex boms(in);
    const auto rows =
        mrp::ExpandBomChildren(boms, BomType(c), bom_inter_id, p_item_id, suggest_qty, qty, *date);

    const db::Dialect& d = c.dialect();
    const std::string table = d.TempTable("Data2222");
    if (c.Query(d.TempTableExists(), {"Data2222"})->Eof()) {
      using T = db::ColumnType;
      c.Execute(d.CreateTempTable(
          "Data2222", {{"FItemID", T::kInt},      {"FBomInterID", T::kInt},
                       {"FPItemID", T::kInt},     {"FInterID", T::kInt},
                       {"FEntryID", T::kInt},     {"FSuggestQty", T::kDecimal, 0, "0"},
                       {"FAuxPropID", T::kInt},   {"FQty", T::kDecimal, 0, "0"},
                       {"FChildQty", T::kDecimal, 0, "0"}, {"FScrap", T::kDecimal, 0, "0"},
                       {"Fdate", T::kDateTime},   {"FNote", T::kVarchar, 355, "''"}}));
    }
    auto insert = c.Prepare("insert into " + table +
                            " (FItemID, FInterID, FEntryID, FPItemID, FSuggestQty, FAuxPropID, FQty,"
                            " FChildQty, FScrap, Fdate, FNote) values (?,?,?,?,?,?,?,?,?,?,?)");
    auto num = [](const mrp::OptNum& v) { return v ? Variant(*v) : Variant::Null(); };
    for (const auto& r : rows) {
      insert->Execute({r.item_id, r.inter_id, r.entry_id, r.p_item_id, num(r.suggest_qty),
                       r.aux_prop_id ? Variant(*r.aux_prop_id) : Variant::Null(), num(r.qty),
                       num(r.child_qty), num(r.scrap), r.date ? Variant(*r.date) : Variant::Null(),
                       r.note ? Variant(*r.note) : Variant::Null()});
    }
  });
}

ClassSpec MrpDataInfoClass() {
  const std::string id = kMrpDataInfoProgId;
  using T = ParamType;
  auto self = [](ComponentObject& o) -> MrpDataInfo& { return static_cast<MrpDataInfo&>(o); };
  return {id,
          [](const Host& host) { return std::make_unique<MrpDataInfo>(host); },
          {
              TransModeMethod(),
              {"GetMrpReportData",
               {In("sDsn", T::kString), In("vctListData", T::kVector),
                OptRef("dctFilter", T::kDictionary), OptRef("strGroupBy", T::kString, ""),
                Opt("sStockKey", T::kString, ""), Opt("UserID", T::kLong, int32_t{0}),
                OptRef("FrmType", T::kInteger, int32_t{0})},
               "Vector",
               [self](ComponentObject& o, Args& a) {
                 return Variant(self(o).GetMrpReportData(a[0].ToText(), a[1].AsVector(),
                                                         a[2].AsDictionary(), a[4].ToText(),
                                                         a[5].ToLong(), a[6].ToLong()));
               }},
              {"GetBomAllChildRs",
               {In("sDsn", T::kString), In("BomInterID", T::kLong), In("PItemID", T::kLong),
                In("SuggestQty", T::kDouble), In("Qty", T::kDouble), Opt("strDate", T::kString, "")},
               "",
               [self](ComponentObject& o, Args& a) {
                 self(o).GetBomAllChildRs(a[0].ToText(), a[1].ToLong(), a[2].ToLong(),
                                          a[3].ToDouble(), a[4].ToDouble(), a[5].ToText());
                 return Variant();
               }},
          }};
}

}  // namespace mrpcalc
