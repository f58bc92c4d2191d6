// Record types, text cutters and the JSON form.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <stdexcept>

#include "expect_error.h"
#include "record/column_value.h"
#include "record/error.h"
#include "record/json.h"
#include "record/recordset.h"
#include "record/text.h"
#include "record/variant.h"

namespace mrpcalc {
namespace {

TEST(Variant, KeepsEmptyNullAndEmptyTextApart) {
  Variant empty;
  Variant null = Variant::Null();
  Variant text("");
  EXPECT_EQ(empty.type(), VariantType::kEmpty);
  EXPECT_EQ(null.type(), VariantType::kNull);
  EXPECT_EQ(text.type(), VariantType::kString);
  EXPECT_FALSE(empty == null);
  EXPECT_FALSE(empty == text);
  // Empty converts like an unassigned host variant; Null refuses.
  EXPECT_EQ(empty.ToLong(), 0);
  EXPECT_EQ(empty.ToText(), "");
  EXPECT_ERROR(null.ToLong(), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(null.ToText(), ErrorCategory::kInvalidInput, "");
}

TEST(Variant, Conversions) {
  EXPECT_EQ(Variant("  42 ").ToLong(), 42);
  EXPECT_EQ(Variant(2.5).ToLong(), 2);  // half to even, as the host rounds
  EXPECT_EQ(Variant(3.5).ToLong(), 4);
  EXPECT_DOUBLE_EQ(Variant("1.25").ToDouble(), 1.25);
  EXPECT_EQ(Variant(0.1 + 0.2).ToText(), "0.3");
  EXPECT_EQ(Variant(100.0).ToText(), "100");
  EXPECT_EQ(Variant(int32_t{-7}).ToText(), "-7");
  EXPECT_DOUBLE_EQ(Variant("12abc").ToValue(), 12);
  EXPECT_DOUBLE_EQ(Variant("").ToValue(), 0);
  EXPECT_ERROR(Variant("abc").ToLong(), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(Variant(3e10).ToLong(), ErrorCategory::kInvalidInput, "");
  EXPECT_EQ(Variant::FromInt64(5).type(), VariantType::kLong);
  EXPECT_EQ(Variant::FromInt64(int64_t{1} << 40).type(), VariantType::kDouble);
  EXPECT_TRUE(Variant("True").ToBoolean());
  EXPECT_FALSE(Variant(int32_t{0}).ToBoolean());
  EXPECT_EQ(Variant("2026-11-22").ToDate(), Date::FromParts(2026, 11, 22));
}

// Doubles print as "%.15g" does, exponent form included: the text is what
// travels between statements and what the rows show.
TEST(Variant, DoublesPrintAsFifteenSignificantDigits) {
  std::vector<double> values = {0.1,
                                1.0 / 3,
                                -2.5e-7,
                                1e-5,
                                123456789012345678.0,
                                1e21,
                                1e15,
                                1e16,
                                -0.0,
                                5e-324,
                                1.7976931348623157e308,
                                0.30000000000000004,
                                99999.99999999999};
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> mantissa(-10, 10);
  std::uniform_int_distribution<int> exponent(-30, 30);
  for (int i = 0; i < 2000; ++i) values.push_back(std::ldexp(mantissa(rng), exponent(rng)));
  for (double v : values) {
    char want[40];
    std::snprintf(want, sizeof want, "%.15g", v);
    EXPECT_EQ(FormatDouble(v), v == 0 ? "0" : want) << v;
  }
}

TEST(Date, ParsesAndPrints) {
  auto d = Date::Parse("2026-02-28 13:04:05");
  ASSERT_TRUE(d);
  EXPECT_EQ(d->ToString(), "2026-02-28 13:04:05");
  EXPECT_EQ(Date::Parse("2024-2-29")->ToString(), "2024-02-29 00:00:00");
  EXPECT_EQ(Date::Parse("2026-11-22T08:00:00.123")->ToString(), "2026-11-22 08:00:00");
  EXPECT_FALSE(Date::Parse("2026-02-29"));
  EXPECT_FALSE(Date::Parse("2026-13-01"));
  EXPECT_FALSE(Date::Parse("22/11/2026"));
  EXPECT_EQ(Date().ToString(), "1899-12-30 00:00:00");  // the zero date
  EXPECT_LT(*Date::Parse("1999-12-31"), *Date::Parse("2000-01-01"));
  EXPECT_EQ(Date::Parse("2026-11-22 23:59:59")->StartOfDay(), *Date::Parse("2026-11-22"));
}

TEST(Dictionary, OrderAndCaseInsensitiveKeys) {
  Dictionary d;
  d.Set("FItemID", int32_t{1});
  d.Set("FBillNo", "SE01");
  d.Set("fitemid", int32_t{2});  // overwrites in place, keeps the first spelling
  ASSERT_EQ(d.size(), 2u);
  EXPECT_EQ(d.key(0), "FItemID");
  EXPECT_EQ(d.Get("FITEMID").ToLong(), 2);
  EXPECT_EQ(d.Get("FBillNO").ToText(), "SE01");
  EXPECT_TRUE(d.Get("Missing").IsEmpty());
  EXPECT_EQ(d.GetOr("SubID", int32_t{0}).ToLong(), 0);
  EXPECT_TRUE(d.Remove("fbillno"));
  EXPECT_FALSE(d.Contains("FBillNo"));
  d.Set("Later", "x");
  EXPECT_EQ(d.key(d.size() - 1), "Later");
  EXPECT_EQ(d.Get("later").ToText(), "x");
}

TEST(Vector, OneBasedWithRemoval) {
  auto v = Vector::Create();
  for (int i = 1; i <= 3; ++i) {
    auto row = Dictionary::Create();
    row->Set("N", int32_t{i});
    v->Add(row);
  }
  EXPECT_EQ(v->Item(1)->Get("N").ToLong(), 1);
  v->Remove(2);
  EXPECT_EQ(v->Count(), 2);
  EXPECT_EQ(v->Item(2)->Get("N").ToLong(), 3);
  EXPECT_ERROR(v->Item(0), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(v->Item(3), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(v->Remove(3), ErrorCategory::kInvalidInput, "");
}

TEST(RecordSet, ConversionStartsAtTheCurrentRow) {
  RecordSet rs({"A", "B"}, {{int32_t{1}, "x"}, {int32_t{2}, Variant::Null()}, {int32_t{3}, "z"}});
  rs.Move(2);
  auto tail = RecordsetToVector(rs);
  ASSERT_EQ(tail->Count(), 1);
  EXPECT_EQ(tail->Item(1)->Get("A").ToLong(), 3);
  EXPECT_TRUE(rs.Eof());
  // Already at EOF: an empty Vector, never nothing.
  auto none = RecordsetToVector(rs);
  ASSERT_TRUE(none);
  EXPECT_EQ(none->Count(), 0);
  rs.MoveFirst();
  rs.MoveNext();
  auto row = RowToDictionary(rs);
  EXPECT_TRUE(row->Get("B").IsNull());
  EXPECT_EQ(rs.position(), 1u);  // RowToDictionary does not move
  RecordSet no_fields({}, {});
  EXPECT_TRUE(RowToDictionary(no_fields)->empty());
}

// Rows of one record set share their keys; changing the keys of one row must
// not show in the others, and a repeated column name is one key.
TEST(RecordSet, RowsShareKeysUntilOneChanges) {
  RecordSet rs({"FItemID", "FName", "fitemid"},
               {{int32_t{1}, "a", int32_t{10}}, {int32_t{2}, "b", int32_t{20}}});
  auto rows = RecordsetToVector(rs);
  const DictionaryPtr first = rows->Item(1), second = rows->Item(2);
  ASSERT_EQ(first->size(), 2u);  // the later "fitemid" overwrote "FItemID"
  EXPECT_EQ(first->key(0), "FItemID");
  EXPECT_EQ(first->Get("FITEMID").ToLong(), 10);
  first->Set("Added", true);
  EXPECT_TRUE(first->Remove("FName"));
  EXPECT_EQ(second->size(), 2u);
  EXPECT_EQ(second->key(1), "FName");
  EXPECT_EQ(second->Get("FName").ToText(), "b");
  EXPECT_FALSE(second->Contains("Added"));
  EXPECT_EQ(first->key(1), "Added");
  second->Set("fname", "B");  // overwriting a value leaves the keys alone
  EXPECT_EQ(second->key(1), "FName");
  EXPECT_EQ(second->Get("FName").ToText(), "B");

  Dictionary shaped(MakeKeyList({"X", "Y"}));
  EXPECT_EQ(shaped.size(), 2u);
  EXPECT_TRUE(shaped.Get("y").IsEmpty());
  EXPECT_TRUE(shaped.Contains("Y"));
}

TEST(Text, SplitFirst) {
  std::string t = "a;b;c";
  EXPECT_EQ(SplitFirst(t, ";"), "a");
  EXPECT_EQ(t, "b;c");
  t = "abc";
  EXPECT_EQ(SplitFirst(t, ";"), "abc");
  EXPECT_EQ(t, "");
  EXPECT_EQ(SplitFirst(t, ";"), "");
  EXPECT_EQ(t, "");
  t = "x^|^y";
  EXPECT_EQ(SplitFirst(t, "^|^"), "x");
  EXPECT_EQ(t, "y");
}

TEST(Text, ParseNameAndValue) {
  std::string t = " {1;2} ; x=3";
  EXPECT_EQ(ParseValue(t), "1;2");
  EXPECT_EQ(t, " x=3");
  t = "7";
  EXPECT_EQ(ParseValue(t), "7");
  EXPECT_EQ(t, "");
  t = "a={x;y};b=2";
  EXPECT_EQ(ParseName(t), "a");
  EXPECT_EQ(ParseValue(t), "x;y");
  EXPECT_EQ(t, "b=2");
  EXPECT_EQ(ParseName(t), "b");
  EXPECT_EQ(ParseValue(t), "2");
}

TEST(Text, ComposeMessage) {
  auto load = [](const std::string& key) { return "<" + key + ">"; };
  EXPECT_EQ(ComposeMessage("~$~K1^|^ text ^|^~$~K2", load), "<K1> text <K2>");
  EXPECT_EQ(ComposeMessage("", load), "");
  EXPECT_EQ(ComposeMessage("plain", load), "plain");
  EXPECT_EQ(ComposeMessage("a^|^^|^b", load), "ab");
}

TEST(ColumnValue, ReadsValuesAsTheBillsStoreThem) {
  // Rounding on the 15-digit text, half away from zero.
  EXPECT_EQ(RoundedText(11.7 * 12, 2), "140.40");
  EXPECT_EQ(RoundedText(11.7 * 12, 0), "140");
  EXPECT_EQ(RoundedText(0.125, 2), "0.13");
  EXPECT_EQ(RoundedText(-0.125, 2), "-0.13");
  EXPECT_EQ(RoundedText(-0.001, 2), "0.00");
  EXPECT_EQ(RoundedText(999.995, 2), "1000.00");
  EXPECT_EQ(RoundedText(1e20, 1), "100000000000000000000.0");
  EXPECT_DOUBLE_EQ(RoundDecimal(1.0 / 3), 0.3333333333);
  EXPECT_DOUBLE_EQ(RoundDecimal(117 / 1.17, 4), 100);
  // Bare numbers must be numbers; quoted ints take blanks as 0.
  EXPECT_DOUBLE_EQ(NumberValue(Variant(" 2.5 "), "q"), 2.5);
  EXPECT_DOUBLE_EQ(NumberValue(Variant(1.0 / 3), "q"), 0.333333333333333);
  EXPECT_ERROR(NumberValue(Variant(""), "q"), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(NumberValue(Variant(), "q"), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(NumberValue(Variant("1;drop"), "q"), ErrorCategory::kInvalidInput, "");
  EXPECT_EQ(IntValue(Variant(5.7), "i"), 5);
  EXPECT_EQ(QuotedIntValue(Variant("  "), "i"), 0);
  EXPECT_EQ(QuotedIntValue(Variant::Null(), "i"), 0);
  EXPECT_EQ(QuotedIntValue(Variant(" 12 "), "i"), 12);
  EXPECT_ERROR(QuotedIntValue(Variant("1.5"), "i"), ErrorCategory::kInvalidInput, "");
  // Dates: an empty text and the zero date read as 1900-01-01.
  EXPECT_EQ(QuotedDateValue(Variant(""), "d"), Date::FromParts(1900, 1, 1));
  EXPECT_EQ(QuotedDateValue(Variant(Date()), "d"), Date::FromParts(1900, 1, 1));
  EXPECT_EQ(QuotedDateValue(Variant("2026-12-01"), "d"), Date::FromParts(2026, 12, 1));
  EXPECT_ERROR(QuotedDateValue(Variant("soon"), "d"), ErrorCategory::kInvalidInput, "");
}

TEST(Json, RoundTripsEveryKind) {
  auto row = Dictionary::Create();
  row->Set("Z", int32_t{1});
  row->Set("A", 2.5);
  row->Set("S", "O'Brien 供应商");
  row->Set("D", *Date::Parse("2026-11-22 10:00:00"));
  row->Set("N", Variant::Null());
  row->Set("B", true);
  auto rows = Vector::Create();
  rows->Add(row);
  const Json j = ToJson(Variant(rows));
  EXPECT_EQ(
      j.dump(),
      R"([{"Z":1,"A":2.5,"S":"O'Brien 供应商","D":"2026-11-22 10:00:00","N":null,"B":true}])");
  Variant back = FromJson(j);
  ASSERT_TRUE(back.AsVector());
  auto r = back.AsVector()->Item(1);
  EXPECT_EQ(r->key(0), "Z");  // key order survives
  EXPECT_EQ(r->Get("Z").type(), VariantType::kLong);
  EXPECT_EQ(r->Get("A").type(), VariantType::kDouble);
  EXPECT_EQ(r->Get("D").type(), VariantType::kString);  // a Date only where declared
  EXPECT_TRUE(r->Get("N").IsNull());
  EXPECT_EQ(FromJson(Json(3.0)).type(), VariantType::kLong);
  EXPECT_EQ(FromJson(Json(int64_t{1} << 40)).type(), VariantType::kDouble);
  EXPECT_ERROR(FromJson(Json::parse("[1,2]")), ErrorCategory::kInvalidInput, "");
}

// What the streaming writer prints, with a tiny buffer so that every value
// crosses a chunk boundary somewhere.
std::string Streamed(const Variant& v, size_t buffer = 7) {
  std::string out;
  JsonWriter w([&](std::string_view chunk) { out.append(chunk); }, buffer);
  w.Value(v, 0);
  w.Flush();
  return out;
}

std::string RandomText(std::mt19937& rng) {
  static const char32_t kPool[] = {U'a',  U'Z',  U'0',  U' ',   U'"',    U'\\',   U'/',  U'\b',
                                   U'\f', U'\n', U'\r', U'\t',  0x01,    0x1F,    0x7F,  0x80,
                                   U'é',  U'供', U'应', 0xFFFD, 0x10348, 0x1F600, U'\'', U'｀'};
  std::u32string text;
  for (int n = static_cast<int>(rng() % 9); n > 0; --n)
    text.push_back(kPool[rng() % std::size(kPool)]);
  std::string out;
  for (char32_t c : text) {
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (c >> 12)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (c >> 18)));
      out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return out;
}

Variant RandomScalar(std::mt19937& rng) {
  switch (rng() % 8) {
    case 0:
      return Variant();
    case 1:
      return Variant::Null();
    case 2:
      return Variant(rng() % 2 == 0);
    case 3:
      return Variant(static_cast<int32_t>(rng()));
    case 4: {  // any finite double, from its bits
      double d;
      do {
        const uint64_t bits = (uint64_t{rng()} << 32) | rng();
        std::memcpy(&d, &bits, sizeof d);
      } while (!std::isfinite(d));
      return Variant(d);
    }
    case 5:
      return Variant(static_cast<double>(static_cast<int32_t>(rng() % 2000) - 1000) / 8);
    case 6:
      return Variant(Date::FromParts(2000 + static_cast<int>(rng() % 50),
                                     1 + static_cast<int>(rng() % 12),
                                     1 + static_cast<int>(rng() % 28)));
    default:
      return Variant(RandomText(rng));
  }
}

// Rows of a few shapes, some sharing their key lists, nested up to depth 3.
Variant RandomValue(std::mt19937& rng, int depth) {
  const unsigned kind = depth >= 3 ? 0 : rng() % 4;
  if (kind == 0) return RandomScalar(rng);
  if (kind == 1) {
    auto d = Dictionary::Create();
    for (int n = static_cast<int>(rng() % 5); n > 0; --n)
      d->Set(RandomText(rng), RandomValue(rng, depth + 1));
    return Variant(d);
  }
  auto rows = Vector::Create();
  static const KeyList shape =
      MakeKeyList({"FItemID", "F\"Name\"", "名称"});  // shared at every depth
  for (int n = static_cast<int>(rng() % 4); n > 0; --n) {
    auto row = kind == 2 ? Dictionary::Create(shape) : Dictionary::Create();
    if (kind == 2) {
      for (size_t i = 0; i < shape->size(); ++i) row->SetAt(i, RandomValue(rng, depth + 1));
    } else {
      for (int k = static_cast<int>(rng() % 3); k > 0; --k)
        row->Set(RandomText(rng), RandomScalar(rng));
    }
    rows->Add(row);
  }
  return Variant(rows);
}

TEST(JsonStreams, WriterPrintsWhatTheDocumentPrints) {
  // Record sets: a column selected twice is one member with the last value.
  auto rs =
      std::make_shared<RecordSet>(std::vector<std::string>{"FID", "FQty", "FID"},
                                  std::vector<std::vector<Variant>>{
                                      {int32_t{1}, 2.5, "x"}, {int32_t{2}, Variant::Null(), 7.0}});
  auto empty_rs = std::make_shared<RecordSet>(std::vector<std::string>{"A"},
                                              std::vector<std::vector<Variant>>{});
  auto no_columns = std::make_shared<RecordSet>(std::vector<std::string>{},
                                                std::vector<std::vector<Variant>>{{}});
  auto outer = Dictionary::Create();
  outer->Set("rs", Variant(std::static_pointer_cast<Object>(rs)));
  outer->Set("none", Variant(std::static_pointer_cast<Object>(empty_rs)));
  outer->Set("bare", Variant(std::static_pointer_cast<Object>(no_columns)));
  outer->Set("empty", Variant(Dictionary::Create()));
  outer->Set("rows", Variant(Vector::Create()));
  for (double d : {0.0, -0.0, 1e-5, 1e16, 1e15, 123.456, 1.0 / 3, 5e-324, 1.7976931348623157e308,
                   std::nan(""), HUGE_VAL}) {
    outer->Set("d" + std::to_string(outer->size()), d);
  }
  EXPECT_EQ(Streamed(Variant(outer)), ToJson(Variant(outer)).dump(2));

  std::mt19937 rng(20261122);
  // Whole numbers of every size up to past 10^15, printed the short way
  // below it, and their neighbours.
  auto whole = Vector::Create();
  for (int i = 0; i < 3000; ++i) {
    const double magnitude = std::pow(10.0, static_cast<double>(rng() % 17));
    double d = std::floor(static_cast<double>(rng()) / 4294967296.0 * magnitude * 1.5);
    if (i % 5 == 1) d = -d;
    if (i % 5 == 2) d = std::nextafter(d, 1e300);
    if (i % 5 == 3) d = 999999999999999.0 + static_cast<double>(i % 3);
    auto row = Dictionary::Create();
    row->Set("d", d);
    whole->Add(row);
  }
  EXPECT_EQ(Streamed(Variant(whole), 64), ToJson(Variant(whole)).dump(2));

  for (int round = 0; round < 400; ++round) {
    const Variant v = RandomValue(rng, 0);
    ASSERT_EQ(Streamed(v, 1 + rng() % 64), ToJson(v).dump(2)) << "round " << round;
  }
}

// Rows of random cells of every kind a source may give, kept as Variants.
class CellTable final : public RowSource {
 public:
  CellTable(KeyList keys, std::vector<std::vector<Variant>> rows)
      : keys_(std::move(keys)), rows_(std::move(rows)) {}
  size_t size() const override { return rows_.size(); }
  const KeyList& keys() const override { return keys_; }
  void Visit(size_t i, CellVisitor& cells) const override {
    for (const Variant& v : rows_[i]) {
      if (v.IsNull()) cells.Null();
      if (const int32_t* n = v.AsLong()) cells.Long(*n);
      if (const double* d = v.AsDouble()) cells.Double(*d);
      if (const std::string* t = v.AsString()) cells.Text(*t);
      if (const Date* d = v.AsDate()) cells.DateValue(*d);
    }
  }

 private:
  KeyList keys_;
  std::vector<std::vector<Variant>> rows_;
};

TEST(JsonStreams, RowSourceIsWrittenAsItsRowsWouldBe) {
  std::mt19937 rng(20261123);
  std::vector<std::vector<Variant>> rows;
  // Enough rows for the writer to lay them out with two threads.
  for (int r = 0; r < 2500; ++r) {
    std::vector<Variant> row(4);
    for (Variant& cell : row) {
      const unsigned kind = rng() % 5;
      if (kind == 0) cell = Variant::Null();
      if (kind == 1) cell = Variant(static_cast<int32_t>(rng()));
      if (kind == 2) cell = Variant(static_cast<double>(rng() % 100000) / (1 + rng() % 1000));
      if (kind == 3) cell = Variant(RandomText(rng));
      if (kind == 4) cell = Variant(*Date::Parse("2026-11-23 10:30:00"));
    }
    rows.push_back(std::move(row));
  }
  auto source = std::make_shared<CellTable>(MakeKeyList({"FItemID", "F\"q", "FQty", "FDate"}),
                                            std::move(rows));
  // One copy read from the source, one whose rows were asked for.
  auto streamed = Vector::Create(source);
  auto built = Vector::Create(source);
  ASSERT_EQ(built->Count(), 2500);
  ASSERT_EQ(built->rows().size(), 2500U);
  EXPECT_EQ(built->source(), nullptr);
  auto outer = Dictionary::Create();
  outer->Set("rows", Variant(streamed));
  auto outer_built = Dictionary::Create();
  outer_built->Set("rows", Variant(built));
  EXPECT_EQ(Streamed(Variant(outer), 13), ToJson(Variant(outer_built)).dump(2));
  EXPECT_EQ(Streamed(Variant(streamed), 1 << 16), Streamed(Variant(built), 1 << 16));
  CheckJsonText(Variant(outer));
  EXPECT_NE(streamed->source(), nullptr) << "writing and checking never build the rows";

  // A source without rows or without keys, and one bad text among the rows.
  EXPECT_EQ(Streamed(Variant(Vector::Create(std::make_shared<CellTable>(
                MakeKeyList({"A"}), std::vector<std::vector<Variant>>{})))),
            "[]");
  EXPECT_EQ(Streamed(Variant(Vector::Create(
                std::make_shared<CellTable>(KeyList(), std::vector<std::vector<Variant>>{{}})))),
            "[\n  {}\n]");
  auto bad = Vector::Create(std::make_shared<CellTable>(
      MakeKeyList({"A"}),
      std::vector<std::vector<Variant>>{{Variant("ok")}, {Variant(std::string("\xE4\xBE"))}}));
  EXPECT_THROW(CheckJsonText(Variant(bad)), Json::type_error);
}

// Rows 0..n-1 of one number each; row `bad` cannot be read.
class FailingRows final : public RowSource {
 public:
  FailingRows(size_t n, size_t bad) : n_(n), bad_(bad) {}
  size_t size() const override { return n_; }
  const KeyList& keys() const override { return keys_; }
  void Visit(size_t i, CellVisitor& cells) const override {
    if (i == bad_) throw std::runtime_error("row " + std::to_string(i) + " is unreadable");
    cells.Long(static_cast<int32_t>(i));
  }

 private:
  size_t n_, bad_;
  KeyList keys_ = MakeKeyList({"N"});
};

TEST(JsonStreams, AFailureWhileWritingASourceStopsBothWriters) {
  // The bad row in a block of either writer; the error is the row's own.
  for (size_t bad : {300u, 700u, 4999u}) {
    auto v = Vector::Create(std::make_shared<FailingRows>(5000, bad));
    try {
      Streamed(Variant(v), 4096);
      ADD_FAILURE() << "row " << bad << " was written";
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(std::string(e.what()), "row " + std::to_string(bad) + " is unreadable");
    }
  }
  // A sink that fails part-way (a closed pipe): the writer gives up at once.
  auto v = Vector::Create(std::make_shared<FailingRows>(20000, 99999));
  size_t taken = 0;
  JsonWriter w(
      [&](std::string_view chunk) {
        taken += chunk.size();
        if (taken > 100000) throw std::runtime_error("closed");
      },
      4096);
  EXPECT_THROW(w.Value(Variant(v), 0), std::runtime_error);
}

TEST(Vector, RowsOfASourceAreBuiltWhenAskedFor) {
  auto source = std::make_shared<CellTable>(
      MakeKeyList({"N", "T"}),
      std::vector<std::vector<Variant>>{
          {int32_t{1}, Variant("a")}, {int32_t{2}, Variant::Null()}, {int32_t{3}, Variant("c")}});
  auto v = Vector::Create(source);
  EXPECT_EQ(v->Count(), 3);
  EXPECT_EQ(v->source(), source.get());
  EXPECT_EQ(v->Item(2)->Get("T").type(), VariantType::kNull);
  EXPECT_EQ(v->source(), nullptr);
  v->Remove(1);
  v->Add(Dictionary::Create());
  ASSERT_EQ(v->Count(), 3);
  EXPECT_EQ(v->Item(1)->Get("N").ToLong(), 2);
  EXPECT_EQ(v->Item(2)->Get("t").ToText(), "c");
  EXPECT_TRUE(v->Item(3)->empty());
  // Adding first builds the source's rows ahead of the new one.
  auto w = Vector::Create(source);
  w->Add(Dictionary::Create());
  EXPECT_EQ(w->Count(), 4);
  EXPECT_EQ(w->Item(1)->Get("N").ToLong(), 1);
}

TEST(JsonStreams, TextCheckAgreesWithTheLibrary) {
  // Random bytes, most of them outside ASCII: the check refuses exactly the
  // strings the library refuses to print, with the library's message.
  std::mt19937 rng(5);
  int refused = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string s;
    for (int n = static_cast<int>(rng() % 6); n > 0; --n) {
      const unsigned r = rng() % 10;
      s.push_back(static_cast<char>(r < 2   ? 'a'
                                    : r < 4 ? 0x80 + rng() % 0x40
                                            : 0xC0 + rng() % 0x40));
    }
    std::string library_error, our_error;
    try {
      static_cast<void>(Json(s).dump());
    } catch (const Json::type_error& e) {
      library_error = e.what();
    }
    try {
      CheckJsonString(s);
    } catch (const Json::type_error& e) {
      our_error = e.what();
    }
    ASSERT_EQ(our_error, library_error) << "round " << round;
    refused += !our_error.empty();
  }
  EXPECT_GT(refused, 1000);
  auto row = Dictionary::Create();
  row->Set("ok", "供应商");
  row->Set("bad", std::string("\xE4\xBE"));  // cut short
  EXPECT_THROW(CheckJsonText(Variant(row)), Json::type_error);
}

// The event reader gives the values that parsing a document and converting
// it gives, errors included.
TEST(JsonStreams, ReaderReadsWhatTheDocumentGives) {
  auto shown = [](const std::vector<Variant>& values) {
    std::string out;
    for (const auto& v : values)
      out += std::string(VariantTypeName(v.type())) + ":" + ToJson(v).dump() + ";";
    return out;
  };
  auto via_document = [&](const std::string& text) {
    std::vector<Variant> values;
    for (const auto& a : Json::parse(text)) values.push_back(FromJson(a));
    return shown(values);
  };
  for (
      const std::string text :
      {R"([])", R"([1, -0, 1.0, 1e2, 2147483647, 2147483648, -2147483649, 1.5])",
       R"([9223372036854775807, 9223372036854775808, 18446744073709551616, -9223372036854775809])",
       R"(["x\u00e9\ud83d\ude00", true, false, null])",
       R"([{"a": 1, "A": 2, "a": 3}, {"b": {"c": [ ]}}])",
       R"([[{"FItemID": 1, "FQty": 2}, {"FItemID": 3, "FQty": 4}, {"FQty": 5, "FItemID": 6}, {"FItemID": 7}]])",
       R"([[{"k": 1, "K": 2}, {"k": 3, "K": 4}]])",
       R"([{"SourceData": [{"FBillNO": "SO1", "Ftrantype": 81}], "Expand": 1}, "", "1", 1, 0])",
       "\xEF\xBB\xBF[1]", "[1e-400, 1e308]", R"(["\u0000", -0.0])"}) {
    for (size_t split_from : {size_t{1} << 30, size_t{0}}) {  // one thread, then two
      const JsonArguments read = ReadJsonArguments(text, split_from);
      EXPECT_TRUE(read.is_array);
      EXPECT_EQ(shown(read.values), via_document(text)) << text;
    }
  }
  // Random argument lists, printed plainly or with \u escapes, then cut
  // or spliced at random: valid or not, the reader agrees with the document.
  std::mt19937 rng(11);
  int valid = 0;
  for (int round = 0; round < 3000; ++round) {
    Json list = Json::array();
    for (int n = static_cast<int>(rng() % 4); n > 0; --n)
      list.push_back(ToJson(RandomValue(rng, 1)));
    std::string text = list.dump(rng() % 2 ? -1 : 1, ' ', rng() % 2 == 0);
    if (rng() % 3 == 0 && !text.empty()) {
      static const char kNoise[] = "[]{},:\"\\0-e.tn \x01\xC3";
      const size_t at = rng() % text.size();
      if (rng() % 2)
        text.erase(at, 1 + rng() % 3);
      else
        text.insert(at, 1, kNoise[rng() % (sizeof kNoise - 1)]);
    }
    std::string ours, document;
    try {
      // Every third text is read in place, with room after it.
      std::string roomy = text;
      roomy.reserve(text.size() + kJsonReadRoom);
      const JsonArguments read = ReadJsonArguments(roomy, round % 2 ? 0 : size_t{1} << 30,
                                                   round % 3 ? 0 : roomy.capacity() - roomy.size());
      ours = read.is_array ? shown(read.values) : "not a list";
    } catch (const std::exception& e) {
      ours = std::string("error: ") + e.what();
    }
    try {
      const Json parsed = Json::parse(text);
      document = parsed.is_array() ? via_document(text) : "not a list";
    } catch (const std::exception& e) {
      document = std::string("error: ") + e.what();
    }
    // A malformed text is refused with the library's own words, up to the
    // bytes it quotes (which the reader shows safe for an answer).
    auto words = [](std::string t) {
      const std::string ours_prefix = "error: the arguments are not valid JSON: ";
      if (t.rfind(ours_prefix, 0) == 0) t = "error: " + t.substr(ours_prefix.size());
      return t.substr(0, t.find("; last read"));
    };
    ASSERT_EQ(words(ours), words(document)) << text;
    valid += ours.rfind("error", 0) != 0;
  }
  EXPECT_GT(valid, 1500);
  EXPECT_FALSE(ReadJsonArguments(R"({"a": [1]})").is_array);
  EXPECT_FALSE(ReadJsonArguments("3").is_array);
  try {
    ReadJsonArguments("[[1]]");
    FAIL() << "an array of scalars inside the list was read";
  } catch (const Error& e) {
    EXPECT_STREQ(e.what(), "a JSON array stands for a Vector of rows and may hold objects only");
  }
  // A syntax error is what is reported, even after an error of meaning,
  // as invalid input in the library's words.
  for (const std::string text :
       {"[1, 2", "[[1]] x", R"(["\ud800"])", "[\"a\x01\"]", "[01]", "[1e400]"}) {
    std::string ours, library;
    try {
      ReadJsonArguments(text);
    } catch (const Error& e) {
      EXPECT_EQ(e.category(), ErrorCategory::kInvalidInput);
      ours = e.what();
    }
    try {
      const Json parsed = Json::parse(text);
    } catch (const Json::exception& e) {
      library = e.what();
    }
    EXPECT_FALSE(library.empty()) << text;
    library = library.substr(0, library.find("; last read"));
    EXPECT_EQ(ours.substr(0, ours.find("; last read")),
              "the arguments are not valid JSON: " + library)
        << text;
  }
  // Nested 64 levels deep is read, 65 is refused, in every reader.
  for (int depth : {64, 65}) {
    std::string nested = "1";  // objects in arrays in objects ..., in the list
    for (int k = 0; k < depth - 1; ++k) nested = k % 2 ? "[" + nested + "]" : "{\"a\": " + nested + "}";
    const std::string list = "[" + nested + "]";
    if (depth == 64) {
      EXPECT_TRUE(ReadJsonArguments(list).is_array);
      EXPECT_NO_THROW(ParseJsonText(list, "x"));
    } else {
      EXPECT_ERROR(ReadJsonArguments(list), ErrorCategory::kInvalidInput, "");
      EXPECT_ERROR(ParseJsonText(list, "x"), ErrorCategory::kInvalidInput, "");
    }
  }
}

}  // namespace
}  // namespace mrpcalc
