// Login properties, messages and the dispatcher, without a database.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "expect_error.h"
#include "component/registry.h"
#include "frame/props.h"
#include "services/host_config.h"
#include "services/messages.h"

namespace mrpcalc {
namespace {

TEST(Props, GetPropValueCutsPairs) {
  EXPECT_EQ(GetPropValue("", "Language"), "");
  EXPECT_EQ(GetPropValue("UserID=16;Language=en;", "Missing"), "");
  EXPECT_EQ(GetPropValue("UserID=16; language = en ;", "LANGUAGE"), "en");
  EXPECT_EQ(GetPropValue("A=1;a=2;", "A"), "1");  // the first match wins
  EXPECT_EQ(GetPropValue("Server={host;port=1};User=sa;", "Server"), "host;port=1");
  EXPECT_EQ(GetPropValue("Server={host;port=1};User=sa;", "User"), "sa");
  // An empty name ends the walk: later pairs are not reached.
  EXPECT_EQ(GetPropValue("=x;B=2;", "B"), "x");
}

class ThrowingLogin : public LoginProperties {
 public:
  std::optional<std::string> GetProperty(const std::string&) override {
    throw Error(ErrorCategory::kInternal, "property service unavailable", 429);
  }
};

TEST(Props, ConnectionPropertyErrorsKeepNumberAndText) {
  ThrowingLogin login;
  try {
    GetConnectionProperty(login, "PropsString");
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), 429);
    EXPECT_STREQ(e.what(), "property service unavailable");
    EXPECT_EQ(e.context(), "ZUVShopRpt.MMTS.GetConnectionProperty\r\n");
  }
}

class PropsLogin : public LoginProperties {
 public:
  explicit PropsLogin(std::string props) : props_(std::move(props)) {}
  std::optional<std::string> GetProperty(const std::string&) override { return props_; }
  std::string props_;
};

Messages MessagesIn(const std::string& login_language, const std::string& host_language = "") {
  return Messages(std::make_shared<PropsLogin>("UserID=1;Language=" + login_language + ";"),
                  std::make_shared<CatalogResourceLoader>(host_language));
}

TEST(Messages, LanguageComesFromLoginThenHostThenChinese) {
  EXPECT_EQ(MessagesIn("en").Language(), "en");
  EXPECT_EQ(MessagesIn("", "en").Language(), "en");
  EXPECT_EQ(MessagesIn("").Language(), "zh");
}

TEST(Messages, SpacingModesActInEnglishOnly) {
  auto en = MessagesIn("en");
  auto zh = MessagesIn("zh");
  EXPECT_EQ(en.LoadResText("  第", kSpacingBefore), "  Line");  // own blanks kept
  EXPECT_EQ(en.LoadResText("第", kSpacingBefore), " Line");
  EXPECT_EQ(en.LoadResText("第", kSpacingAfter), "Line ");
  EXPECT_EQ(en.LoadResText("第", kSpacingBoth), " Line ");
  EXPECT_EQ(en.LoadResText("第", kSpacingNone), "Line");
  EXPECT_EQ(zh.LoadResText("第", kSpacingBoth), "第");
  EXPECT_EQ(zh.LoadResText("  第", kSpacingBefore), "  第");
  EXPECT_EQ(en.LoadResText("unknown key", kSpacingNone), "unknown key");
}

TEST(Messages, ComposesPiecesAndKeys) {
  auto en = MessagesIn("en");
  EXPECT_EQ(en.LoadResText("~$~第^|^ 3 ^|^~$~关联！", kSpacingBoth), "Line 3 !");
  auto zh = MessagesIn("zh");
  EXPECT_EQ(zh.ComposeMessage("~$~第^|^3^|^~$~行，物料【^|^3.01^|^~$~】的辅助属性不能为空！"),
            "第3行，物料【3.01】的辅助属性不能为空！");
}

TEST(Messages, LookupLeavesAPendingErrorAlone) {
  auto en = MessagesIn("en");
  try {
    throw Error(ErrorCategory::kDatabase, "deadlock victim", 1205);
  } catch (const Error& e) {
    const std::string text = en.LoadResText("该记录已经关闭，不能再次关闭！", kSpacingNone);
    EXPECT_EQ(text, "This record is already closed and cannot be closed again!");
    EXPECT_EQ(e.number(), 1205);
    EXPECT_STREQ(e.what(), "deadlock victim");
    EXPECT_TRUE(std::current_exception());
  }
}

TEST(HostConfig, DataRightsList) {
  auto rights = HostConfig::ParseDataRights("16:2, 16:4");
  EXPECT_EQ(rights.size(), 2u);
  EXPECT_TRUE(rights.count({16, 4}));
  EXPECT_TRUE(HostConfig::ParseDataRights("").empty());
  EXPECT_ERROR(HostConfig::ParseDataRights("16"), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(HostConfig::ParseDataRights("16:x"), ErrorCategory::kInvalidInput, "");
}

// Every published method checks its arguments before it works: with
// nothing after sDsn it refuses by name the first argument it needs (or,
// needing none, answers or fails on the empty database, never on its
// arguments); with one argument too many it says how many it takes.
TEST(Dispatcher, EveryMethodChecksItsArgumentsBeforeItWorks) {
  const Host host = MakeStandaloneHost(HostConfig{});
  const std::string dsn = "sqlite::memory:";
  size_t checked = 0;
  for (const auto& cls : PublicClasses().classes()) {
    for (const auto& m : cls.methods) {
      const std::string where = cls.prog_id + "." + m.name;
      const size_t first = m.TakesDsn() ? 1 : 0;
      const ParamSpec* needed = nullptr;
      for (size_t i = first; i < m.params.size() && !needed; ++i) {
        if (!m.params[i].optional) needed = &m.params[i];
      }
      try {
        Invoke(PublicClasses(), host, cls.prog_id, m.name, {}, dsn);
        EXPECT_EQ(needed, nullptr) << where << " ran without its " << needed->name;
      } catch (const Error& e) {
        if (needed) {
          EXPECT_EQ(e.category(), ErrorCategory::kInvalidInput) << where;
          EXPECT_EQ(std::string(e.what()), m.name + ": argument " + needed->name + " is required");
        } else {
          EXPECT_EQ(e.category(), ErrorCategory::kDatabase) << where << ": " << e.what();
        }
      }
      const std::vector<Variant> too_many(m.params.size() - first + 1, Variant(1));
      try {
        Invoke(PublicClasses(), host, cls.prog_id, m.name, too_many, dsn);
        ADD_FAILURE() << where << " took " << too_many.size() << " arguments";
      } catch (const Error& e) {
        EXPECT_EQ(e.category(), ErrorCategory::kInvalidInput) << where;
        EXPECT_NE(std::string(e.what()).find(" takes " + std::to_string(too_many.size() - 1)),
                  std::string::npos)
            << e.what();
      }
      ++checked;
    }
  }
  EXPECT_GT(checked, 40u);
}

// A class of our own to see the dispatcher convert and hand back arguments.
class Probe : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;
};

Registry ProbeRegistry() {
  Registry r;
  using T = ParamType;
  r.Add({"Test.Probe",
         [](const Host& host) { return std::make_unique<Probe>(host); },
         {{"Echo",
           {In("sDsn", T::kString), In("When", T::kDate), Ref("Count", T::kLong),
            Opt("Qty", T::kDouble, 1.5), OptRef("Note", T::kString, "n/a")},
           "String",
           [](ComponentObject& o, Args& a) {
             a[2] = Variant(a[2].ToLong() + 1);
             a[4] = Variant(a[4].ToText() + "!");
             o.host().messages->Show("shown to the user");
             return Variant(a[1].AsDate()->ToString() + " " + a[3].ToText());
           }}}});
  return r;
}

TEST(Dispatcher, ConvertsArgumentsAndReturnsByRefValues) {
  const Registry r = ProbeRegistry();
  const Host host = MakeStandaloneHost(HostConfig{});
  CallResult out = Invoke(r, host, "test.probe", "echo", {Variant("2026-11-22"), Variant("41")},
                          "sqlite::memory:");
  EXPECT_EQ(out.result, Variant("2026-11-22 00:00:00 1.5"));
  ASSERT_EQ(out.by_ref.size(), 2u);
  EXPECT_EQ(out.by_ref[0].first, "Count");
  EXPECT_EQ(out.by_ref[0].second, Variant(int32_t{42}));
  EXPECT_EQ(out.by_ref[1].second, Variant("n/a!"));
  EXPECT_EQ(out.messages, std::vector<std::string>{"shown to the user"});

  auto message_of = [&](std::vector<Variant> args, const std::string& dsn = "sqlite::memory:") {
    try {
      Invoke(r, host, "Test.Probe", "Echo", args, dsn);
    } catch (const Error& e) {
      return std::string(e.what());
    }
    return std::string("no error");
  };
  EXPECT_EQ(message_of({Variant("22/11/2026"), Variant(int32_t{1})}),
            "argument When (Date): cannot convert \"22/11/2026\" to Date");
  EXPECT_EQ(message_of({Variant("2026-11-22")}), "Echo: argument Count is required");
  EXPECT_EQ(message_of({Variant("2026-11-22"), Variant(int32_t{1}), Variant(1.0), Variant("x"),
                        Variant("extra")}),
            "Echo takes 4 argument(s) after sDsn, 5 given");
  EXPECT_EQ(message_of({Variant("2026-11-22"), Variant(int32_t{1})}, ""),
            "Test.Probe.Echo needs a database: give --dsn");
  EXPECT_ERROR(Invoke(r, host, "Test.Nothing", "Echo", {}, ""), ErrorCategory::kNotFound, "");
  EXPECT_ERROR(Invoke(r, host, "Test.Probe", "Nothing", {}, ""), ErrorCategory::kNotFound, "");
}

// Every published method runs its own code: called without arguments on an
// empty database it refuses or fails, but never as a method not built.
}  // namespace
}  // namespace mrpcalc
