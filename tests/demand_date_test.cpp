// Required dates of demand lines, on every engine (demo database).
#include "expect_error.h"
#include "db_fixture.h"
#include "record/error.h"
#include "mrp/loader.h"

namespace mrpcalc::testing {
namespace {

class DemandDate : public DemoDbTest {
 protected:
  static DictionaryPtr Source(const char* bill, int type, int inter, int entry) {
    auto d = Dictionary::Create();
    d->Set("FBillNO", bill);
    d->Set("Ftrantype", type);
    d->Set("finterid", inter);
    d->Set("fentryid", entry);
    return d;
  }
  Date DateOf(std::vector<DictionaryPtr> rows, std::vector<std::string> numbers) {
    auto source = Vector::Create();
    for (auto& r : rows) source->Add(r);
    mrp::DemandDates dates(source, {numbers});
    dates.Load(conn());
    return dates.For(numbers);
  }
};
MRPCALC_ALL_SCHEMAS(DemandDate);

TEST_P(DemandDate, SalesLinesTasksAndTheirMix) {
  // Sales order 1: line 1 delivers 2026-12-10, line 2 2026-12-05.
  EXPECT_EQ(DateOf({Source("SEORD000001", 81, 1, 1)}, {"SEORD000001"}), *Date::Parse("2026-12-10"));
  EXPECT_EQ(
      DateOf({Source("SEORD000001", 81, 1, 1), Source("SEORD000001", 81, 1, 2)}, {"SEORD000001"}),
      *Date::Parse("2026-12-05"));
  // A task row in hand: the tasks named by the line, earliest start; joined
  // with the sales lines that match.
  EXPECT_EQ(DateOf({Source("WORK000002", 85, 2, 0)}, {"WORK000001", "WORK000002"}),
            *Date::Parse("2026-12-01"));
  EXPECT_EQ(DateOf({Source("SEORD000001", 81, 1, 1), Source("WORK000002", 85, 2, 0)},
                   {"SEORD000001", "WORK000002"}),
            *Date::Parse("2026-12-08"));
  // The match is a substring test: a prefix of the line's number matches too.
  EXPECT_EQ(DateOf({Source("SEORD00000", 81, 1, 2), Source("X", 81, 2, 1)}, {"SEORD000001"}),
            *Date::Parse("2026-12-05"));
  // ... anywhere in the quoted list, across the quotes; numbers of every
  // length are tried, and a longer one never matches.
  EXPECT_EQ(DateOf({Source("1','SEORD", 81, 1, 2)}, {"SEORD000001", "SEORD000002"}),
            *Date::Parse("2026-12-05"));
  EXPECT_EQ(
      DateOf({Source("ORD000001", 81, 1, 1), Source("SEORD000001X", 81, 1, 2)}, {"SEORD000001"}),
      *Date::Parse("2026-12-10"));
  // A row without a number matches every line.
  auto unnumbered = Source("", 81, 1, 2);
  unnumbered->Set("FBillNO", Variant::Null());
  EXPECT_EQ(DateOf({unnumbered}, {"ANYTHING"}), *Date::Parse("2026-12-05"));
  // Nothing dated anywhere: the zero date.
  EXPECT_EQ(DateOf({Source("NOSUCH", 85, 99, 0)}, {"NOSUCH"}), Date());
}

TEST_P(DemandDate, StatementsTheReportCouldNotBuildFail) {
  // Sales type in hand but no sales row matching the line.
  EXPECT_ERROR(DateOf({Source("SEORD000002", 81, 2, 1)}, {"SEORD000001"}), ErrorCategory::kInvalidInput, "");
  // A source type other than 81, 85 and 91.
  EXPECT_ERROR(DateOf({Source("SEORD000001", 81, 1, 1), Source("X", 77, 1, 0)}, {"SEORD000001"}), ErrorCategory::kInvalidInput, "");
  // No source rows at all.
  EXPECT_ERROR(DateOf({}, {"SEORD000001"}), ErrorCategory::kInvalidInput, "");
}

}  // namespace
}  // namespace mrpcalc::testing
