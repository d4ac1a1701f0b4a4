#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/instrument/FaultRules.h"

namespace orvane {
namespace {

using testing::StartsWith;

FaultRules Rules(std::initializer_list<const char*> texts) {
  FaultRules rules;
  for (const char* const text : texts) {
    rules.Add(FaultRule::Parse(text));
  }
  return rules;
}

std::string ProblemWith(const char* text) {
  try {
    FaultRule::Parse(text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "none";
}

TEST(FaultRuleTest, PathWithColonsBelongsToThePlace) {
  const FaultRule rule = FaultRule::Parse("open:/sys/a:b/value#2:ENOENT");
  EXPECT_EQ(rule.kind, EventKind::kOpen);
  EXPECT_EQ(rule.text, "/sys/a:b/value");
  EXPECT_EQ(rule.first, 2U);
  EXPECT_FALSE(rule.onwards);
  EXPECT_EQ(rule.fault.kind, Fault::Kind::kFail);
  EXPECT_EQ(rule.fault.error, ENOENT);
}

TEST(FaultRuleTest, KindAloneMeansEveryEventOfIt) {
  const FaultRule rule = FaultRule::Parse("spi:lost");
  EXPECT_EQ(rule.kind, EventKind::kSpi);
  EXPECT_EQ(rule.text, "");
  EXPECT_EQ(rule.first, 1U);
  EXPECT_TRUE(rule.onwards);
  EXPECT_EQ(rule.fault.kind, Fault::Kind::kLose);
}

TEST(FaultRuleTest, AnyKindHasNoKind) {
  const FaultRule rule = FaultRule::Parse("any#17:kill");
  EXPECT_EQ(rule.kind, std::nullopt);
  EXPECT_EQ(rule.first, 17U);
  EXPECT_EQ(rule.fault.kind, Fault::Kind::kKill);
}

TEST(FaultRuleTest, PlusMeansOnwards) {
  const FaultRule rule = FaultRule::Parse("i2c:0x21 w 02#3+:ENXIO");
  EXPECT_EQ(rule.text, "0x21 w 02");
  EXPECT_EQ(rule.first, 3U);
  EXPECT_TRUE(rule.onwards);
}

TEST(FaultRuleTest, HashWithoutNumberBelongsToTheText) {
  const FaultRule rule = FaultRule::Parse("open:a#b:EIO");
  EXPECT_EQ(rule.text, "a#b");
  EXPECT_TRUE(rule.onwards);
}

TEST(FaultRuleTest, DataMayContainAnything) {
  const FaultRule rule = FaultRule::Parse("read:/sys/x#1:data:1:EIO\\x00\\n");
  EXPECT_EQ(rule.text, "/sys/x");
  EXPECT_EQ(rule.fault.kind, Fault::Kind::kAnswer);
  EXPECT_EQ(rule.fault.text, std::string("1:EIO\0\n", 7));
}

TEST(FaultRuleTest, EmptyDataIsAnAnswerWithoutBytes) {
  const FaultRule rule = FaultRule::Parse("read:done#1:data:");
  EXPECT_EQ(rule.fault.kind, Fault::Kind::kAnswer);
  EXPECT_EQ(rule.fault.text, "");
}

TEST(FaultRuleTest, DBusErrorHasADefaultName) {
  EXPECT_EQ(FaultRule::Parse("dbus:GetI2CBus#1:error").fault.text,
            "org.freedesktop.DBus.Error.Failed");
}

TEST(FaultRuleTest, DBusErrorCanBeNamed) {
  EXPECT_EQ(FaultRule::Parse("dbus:error:org.x.Y").fault.text, "org.x.Y");
}

TEST(FaultRuleTest, NameThatNoDBusErrorHasIsRefused) {
  EXPECT_EQ(ProblemWith("dbus:GetI2CBus#1:error:no name"),
            "'no name' is not the name of a D-Bus error (elements of letters, digits and '_', "
            "separated by '.', as in org.freedesktop.DBus.Error.Failed)");
}

TEST(FaultRuleTest, AnswerThatTheEventCannotCarryIsRefusedAsItWasTyped) {
  EXPECT_EQ(ProblemWith("dbus:GetModuleLocations:data:1 x"),
            "'1 x' cannot be the answer of GetModuleLocations (whole numbers with blanks between "
            "them)");
  EXPECT_EQ(ProblemWith("dbus:GetI2CBus:data:\\xff"),
            "'\\xff' cannot be the answer of GetI2CBus (UTF-8 without \\x00)");
  EXPECT_EQ(ProblemWith("ioctl:RD_MODE#1:data:-1"),
            "'-1' cannot be the answer of SPI_IOC_RD_MODE (a number from 0 to 255)");
}

TEST(FaultRuleTest, KillAllIsAnActionOfItsOwn) {
  const FaultRule rule = FaultRule::Parse("spi:PP#3:kill-all");
  EXPECT_EQ(rule.text, "PP");
  EXPECT_EQ(rule.first, 3U);
  EXPECT_EQ(rule.fault.kind, Fault::Kind::kKillAll);
}

TEST(FaultRuleTest, KillSessionIsAnActionOfItsOwn) {
  const FaultRule rule = FaultRule::Parse("dbus:GetI2CBus#2:kill-session");
  EXPECT_EQ(rule.text, "GetI2CBus");
  EXPECT_EQ(rule.first, 2U);
  EXPECT_EQ(rule.fault.kind, Fault::Kind::kKillSession);
}

TEST(FaultRuleTest, UnknownKindIsRefused) {
  EXPECT_EQ(ProblemWith("spy:EIO"),
            "'spy' is not a kind of event (open, close, read, write, ioctl, spi, i2c, dbus, sleep, "
            "file or any)");
}

TEST(FaultRuleTest, UnknownActionIsRefused) {
  EXPECT_EQ(ProblemWith("spi#1:EWRONG"),
            "'EWRONG' is not an action (an errno, lost, kill, kill-session, kill-all, data:TEXT or "
            "error[:NAME])");
  EXPECT_EQ(ProblemWith("open:a:b:"),
            "'' is not an action (an errno, lost, kill, kill-session, kill-all, data:TEXT or "
            "error[:NAME])");
}

TEST(FaultRuleTest, MissingActionIsRefused) {
  EXPECT_EQ(ProblemWith("spi"),
            "no action follows 'spi' (an errno, lost, kill, kill-session, kill-all, data:TEXT or "
            "error[:NAME])");
}

TEST(FaultRuleTest, EventZeroIsRefused) {
  EXPECT_EQ(ProblemWith("spi#0:EIO"), "'#0': events are counted from 1");
  EXPECT_EQ(ProblemWith("spi:PP#0+:EIO"), "'#0+': events are counted from 1");
}

TEST(FaultRuleTest, BadEscapeInDataIsRefused) {
  EXPECT_THAT(ProblemWith("read:x:data:\\q"),
              StartsWith("'\\q': the backslash must be followed by"));
}

struct UnsuitableRow {
  const char* kind;
  const char* action;
};

TEST(FaultRuleTest, ActionThatDoesNotSuitTheKindIsRefused) {
  for (const UnsuitableRow& row : {UnsuitableRow{"open", "lost"},
                                   {"close", "lost"},
                                   {"read", "lost"},
                                   {"sleep", "lost"},
                                   {"dbus", "lost"},
                                   {"file", "lost"},
                                   {"file", "data:x"},
                                   {"any", "lost"},
                                   {"open", "data:x"},
                                   {"close", "data:x"},
                                   {"write", "data:x"},
                                   {"sleep", "data:x"},
                                   {"any", "data:x"},
                                   {"dbus", "EIO"},
                                   {"any", "EIO"},
                                   {"spi", "error"},
                                   {"any", "error"}}) {
    const std::string kind = row.kind;
    const std::string action = row.action;
    EXPECT_EQ(ProblemWith((kind + ":" + action).c_str()),
              "'" + action + "' cannot happen to '" + kind + "' events");
  }
}

TEST(FaultRuleTest, EveryKindCanBeKilled) {
  for (const std::string kind :
       {"open", "close", "read", "write", "ioctl", "spi", "i2c", "dbus", "sleep", "file", "any"}) {
    EXPECT_EQ(ProblemWith((kind + ":kill").c_str()), "none") << kind;
    EXPECT_EQ(ProblemWith((kind + ":kill-session").c_str()), "none") << kind;
    EXPECT_EQ(ProblemWith((kind + ":kill-all").c_str()), "none") << kind;
  }
}

TEST(FaultRulesTest, NoRuleHitsNothing) {
  FaultRules rules;
  EXPECT_TRUE(rules.Empty());
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "/dev/spidev1.0 WREN").kind, Fault::Kind::kNone);
}

TEST(FaultRulesTest, NthEventIsHitAndNoOther) {
  FaultRules rules = Rules({"spi#2:EIO"});
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "a").kind, Fault::Kind::kNone);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "b").error, EIO);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "c").kind, Fault::Kind::kNone);
}

TEST(FaultRulesTest, NthEventAndThoseBehindItAreHit) {
  FaultRules rules = Rules({"spi#2+:EIO"});
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "a").kind, Fault::Kind::kNone);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "b").error, EIO);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "c").error, EIO);
}

TEST(FaultRulesTest, OnlyEventsThatMatchAreCounted) {
  FaultRules rules = Rules({"spi:PP#2:EIO"});
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "/dev/spidev1.0 PP 0x000000 +256").error, 0);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "/dev/spidev1.0 RDSR").error, 0);
  EXPECT_EQ(rules.Judge(EventKind::kWrite, "./PP +1").error, 0);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "/dev/spidev1.0 PP 0x000100 +256").error, EIO);
}

struct TextRow {
  const char* text;   // of the rule
  const char* event;  // an SPI event, as the log shows it
  bool hits;
};

TEST(FaultRulesTest, TextHitsWhereAWordOfTheEventBegins) {
  for (const TextRow& row : {TextRow{"SE", "/dev/spidev1.0 SE 0x000000", true},
                             {"SE", "/dev/spidev1.0 SSE 0x000000", false},
                             {"SE", "/dev/spidev1.0 SSE SE", true},
                             {"SE", "SE", true},
                             {"SE", "SSE", false},
                             {"S", "/dev/spidev1.0 SSE 0x000000", true},
                             {"dump", "./dumpflash.bin +4096", true},
                             {"flash", "./dumpflash.bin +4096", false},
                             {"done", "/sys/platform_m1/zynq_done/value", true},
                             {"RD_MAX", "/dev/spidev1.0 SPI_IOC_RD_MAX_SPEED_HZ", true},
                             {"1", "/dev/i2c-1 0x21 w 02", true},
                             {"1", "/dev/spidev1", false},
                             {"21", "0x21", false}}) {
    FaultRules rules = Rules({(std::string("spi:") + row.text + ":EIO").c_str()});
    EXPECT_EQ(rules.Judge(EventKind::kSpi, row.event).error, row.hits ? EIO : 0)
        << row.text << " in " << row.event;
  }
}

TEST(FaultRulesTest, CapitalAfterASmallLetterBeginsAWord) {
  FaultRules rules = Rules({"dbus:Locations:error"});
  EXPECT_EQ(rules.Judge(EventKind::kDBus, "GetModuleLocations").kind, Fault::Kind::kFail);
}

TEST(FaultRulesTest, TextThatBeginsWithNoLetterOrDigitHitsAnywhere) {
  FaultRules rules = Rules({"write:/rescan:EIO"});
  EXPECT_EQ(rules.Judge(EventKind::kWrite, "/sys/bus/pci0/rescan \"1\"").error, EIO);
}

TEST(FaultRulesTest, AnyCountsEventsOfAllKinds) {
  FaultRules rules = Rules({"any#3:kill"});
  EXPECT_EQ(rules.Judge(EventKind::kOpen, "a").kind, Fault::Kind::kNone);
  EXPECT_EQ(rules.Judge(EventKind::kDBus, "b").kind, Fault::Kind::kNone);
  EXPECT_EQ(rules.Judge(EventKind::kSleep, "5 s").kind, Fault::Kind::kKill);
}

TEST(FaultRulesTest, FirstRuleThatHitsDecides) {
  FaultRules rules = Rules({"spi#2:EIO", "spi:ENXIO"});
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "a").error, ENXIO);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "b").error, EIO);
}

using Texts = std::vector<std::string>;

TEST(FaultRulesTest, RuleThatHitNothingKeepsItsText) {
  FaultRules rules = Rules({"spi:PP#3:lost", "open#1+:ENOENT", "i2c:kill"});
  EXPECT_EQ(rules.Unhit(), (Texts{"spi:PP#3:lost", "open#1+:ENOENT", "i2c:kill"}));
  rules.Judge(EventKind::kOpen, "a");
  EXPECT_EQ(rules.Unhit(), (Texts{"spi:PP#3:lost", "i2c:kill"}));
}

TEST(FaultRulesTest, RuleThatHasMatchedButNotHitIsUnhit) {
  FaultRules rules = Rules({"spi#2:EIO"});
  rules.Judge(EventKind::kSpi, "a");
  EXPECT_EQ(rules.Unhit(), Texts{"spi#2:EIO"});
  rules.Judge(EventKind::kSpi, "a");
  EXPECT_EQ(rules.Unhit(), Texts{});
  rules.Judge(EventKind::kSpi, "a");
  EXPECT_EQ(rules.Unhit(), Texts{});
}

TEST(FaultRulesTest, RuleBehindAnotherThatDecidesIsUnhit) {
  FaultRules rules = Rules({"spi:EIO", "spi#1:ENXIO"});
  rules.Judge(EventKind::kSpi, "a");
  EXPECT_EQ(rules.Unhit(), Texts{"spi#1:ENXIO"});
}

TEST(FaultRulesTest, SecondOfTwoEqualRulesIsUnhit) {
  FaultRules rules = Rules({"spi:EIO", "spi:EIO"});
  rules.Judge(EventKind::kSpi, "a");
  EXPECT_EQ(rules.Unhit(), Texts{"spi:EIO"});
}

TEST(FaultRulesTest, RuleWithAnAnswerHasHitWhenTheAnswerIsTaken) {
  FaultRules rules = Rules({"any#9:kill", "spi:data:x"});
  const Fault fault = rules.Judge(EventKind::kSpi, "a");
  EXPECT_EQ(rules.Unhit(), (Texts{"any#9:kill", "spi:data:x"}));
  rules.CountAnswer(fault);
  EXPECT_EQ(rules.Unhit(), Texts{"any#9:kill"});
}

TEST(FaultRulesTest, RuleCountsWhatAnotherRuleHits) {
  FaultRules rules = Rules({"spi#1:EIO", "spi#2:ENXIO"});
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "a").error, EIO);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "b").error, ENXIO);
}

TEST(FaultRulesTest, RulesThatAreNotActiveNeitherHitNorCount) {
  FaultRules rules = Rules({"spi#2:lost"});
  rules.SetActive(false);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "x").kind, Fault::Kind::kNone);
  rules.SetActive(true);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "x").kind, Fault::Kind::kNone);
  EXPECT_EQ(rules.Judge(EventKind::kSpi, "x").kind, Fault::Kind::kLose);
}

}  // namespace
}  // namespace orvane
