#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/CommandLine.h"

namespace {

using Words = std::vector<std::string>;

/// What a program called "tool" has read.
struct Reading {
  std::optional<std::string> answer;
  std::string problem;  // the text of the usage error; empty: none
  bool fast = false;
  Words logs;
  Words sums;  // "-" where --sum stands alone
  Words command;
};

std::vector<const char*> Pointers(const Words& words) {
  std::vector<const char*> pointers;
  pointers.reserve(words.size());
  for (const std::string& word : words) {
    pointers.push_back(word.c_str());
  }
  return pointers;
}

void TakeLog(const std::string& value, Words& logs) {
  if (value == "bad") {
    throw std::invalid_argument("'bad' is no log");
  }
  logs.push_back(value);
}

/// What a tool with a flag, an option, one whose value can be left out, and words after "--" has read.
Reading Read(const Words& words) {
  Reading reading;
  cli::CommandLine line("tool", "help text\n");
  line.Options().AddFlag("--fast", reading.fast);
  line.Options().AddOption("--log",
                           [&](const std::string& value) { TakeLog(value, reading.logs); });
  line.Options().AddOptionalValue("--sum", [&](const std::optional<std::string>& value) {
    if (value == "bad") {
      throw std::invalid_argument("'bad' is no sum");
    }
    reading.sums.push_back(value.value_or("-"));
  });
  line.AddRest("COMMAND", reading.command);
  try {
    reading.answer = line.Read(Pointers(words));
  } catch (const cli::UsageError& error) {
    reading.problem = error.what();
  }
  return reading;
}

/// What a tool with the words `draw` (--pen PEN) and `print` (--twice) has read.
struct CommandReading {
  std::optional<std::string> answer;
  std::string problem;
  bool draw = false;
  std::string pen;
  bool print = false;
  bool twice = false;
};

CommandReading ReadCommand(const Words& words) {
  CommandReading reading;
  cli::CommandLine line("tool", "help text\n");
  line.AddCommand("draw", reading.draw).AddOption("--pen", [&](const std::string& value) {
    reading.pen = value;
  });
  line.AddCommand("print", reading.print).AddFlag("--twice", reading.twice);
  try {
    reading.answer = line.Read(Pointers(words));
  } catch (const cli::UsageError& error) {
    reading.problem = error.what();
  }
  return reading;
}

TEST(CommandLineTest, ValueIsTheNextWordOrStandsAfterAnEqualsSign) {
  EXPECT_EQ(Read({"--log", "a", "--", "x"}).logs, (Words{"a"}));
  EXPECT_EQ(Read({"--log=a", "--", "x"}).logs, (Words{"a"}));
  EXPECT_EQ(Read({"--log=a=b", "--", "x"}).logs, (Words{"a=b"}));
}

TEST(CommandLineTest, ValueCanBeEmpty) {
  EXPECT_EQ(Read({"--log", "", "--", "x"}).logs, (Words{""}));
  const Reading reading = Read({"--log=", "--fast", "--", "x"});
  EXPECT_EQ(reading.logs, (Words{""}));
  EXPECT_TRUE(reading.fast);
}

TEST(CommandLineTest, ValueCanBeAnyWord) {
  EXPECT_EQ(Read({"--log", "--fast", "--", "x"}).logs, (Words{"--fast"}));
  EXPECT_EQ(Read({"--log", "--", "--", "x"}).logs, (Words{"--"}));
  EXPECT_EQ(Read({"--log", "--log=", "--", "x"}).logs, (Words{"--log="}));
  EXPECT_EQ(Read({"--log", "-1", "--", "x"}).logs, (Words{"-1"}));
  EXPECT_EQ(Read({"--log", "[a,b]", "--", "x"}).logs, (Words{"[a,b]"}));
  EXPECT_EQ(Read({"--log", "{}", "--", "x"}).logs, (Words{"{}"}));
  EXPECT_EQ(Read({"--log", "\"a b\"", "--", "x"}).logs, (Words{"\"a b\""}));
}

TEST(CommandLineTest, ValuesOfARepeatedOptionKeepTheirOrder) {
  EXPECT_EQ(Read({"--log", "b", "--fast", "--log=a", "--log", "c", "--", "x"}).logs,
            (Words{"b", "a", "c"}));
}

TEST(CommandLineTest, OptionalValueStandsAfterAnEqualsSignAlone) {
  EXPECT_EQ(Read({"--sum", "--", "x"}).sums, (Words{"-"}));
  EXPECT_EQ(Read({"--sum=a", "--", "x"}).sums, (Words{"a"}));
  EXPECT_EQ(Read({"--sum=a=b", "--", "x"}).sums, (Words{"a=b"}));
  EXPECT_EQ(Read({"--sum=", "--sum", "--sum={}", "--", "x"}).sums, (Words{"", "-", "{}"}));
  EXPECT_EQ(Read({"--", "x"}).sums, Words());
}

TEST(CommandLineTest, WordAfterAnOptionalValueIsNoValue) {
  EXPECT_EQ(Read({"--sum", "a", "--", "x"}).problem,
            "unexpected word 'a' (COMMAND comes after '--')");
  const Reading reading = Read({"--sum", "--fast", "--", "x"});
  EXPECT_EQ(reading.sums, (Words{"-"}));
  EXPECT_TRUE(reading.fast);
}

TEST(CommandLineTest, OptionWithAnOptionalValueCanBeTheValueOfAnother) {
  const Reading reading = Read({"--log", "--sum=a", "--", "x", "--sum"});
  EXPECT_EQ(reading.logs, (Words{"--sum=a"}));
  EXPECT_EQ(reading.sums, Words());
  EXPECT_EQ(reading.command, (Words{"x", "--sum"}));
}

TEST(CommandLineTest, WrongOptionalValueIsRefusedWithTheNameOfTheOption) {
  EXPECT_EQ(Read({"--sum=bad", "--", "x"}).problem, "--sum: 'bad' is no sum");
  EXPECT_EQ(Read({"--sums", "--", "x"}).problem, "unknown option '--sums'");
}

TEST(CommandLineTest, CommandCanHaveAnOptionWithAnOptionalValue) {
  bool draw = false;
  Words pens;
  cli::CommandLine line("tool", "");
  line.AddCommand("draw", draw)
      .AddOptionalValue("--pen", [&](const std::optional<std::string>& value) {
        pens.push_back(value.value_or("-"));
      });
  line.Read(Pointers({"draw", "--pen=red", "--pen"}));
  EXPECT_TRUE(draw);
  EXPECT_EQ(pens, (Words{"red", "-"}));
}

TEST(CommandLineTest, OptionalValueIsThatOfTheGivenCommandAlone) {
  bool draw = false;
  bool print = false;
  Words pens;
  Words papers;
  cli::CommandLine line("tool", "");
  line.AddCommand("draw", draw)
      .AddOptionalValue("--with", [&](const std::optional<std::string>& value) {
        pens.push_back(value.value_or("-"));
      });
  line.AddCommand("print", print)
      .AddOptionalValue("--with", [&](const std::optional<std::string>& value) {
        papers.push_back(value.value_or("-"));
      });
  line.Read(Pointers({"print", "--with=a4"}));
  EXPECT_EQ(pens, Words());
  EXPECT_EQ(papers, (Words{"a4"}));
}

TEST(CommandLineTest, OptionalValueOfACommandComesAfterIt) {
  bool draw = false;
  cli::CommandLine line("tool", "");
  line.AddCommand("draw", draw)
      .AddOptionalValue("--pen", [](const std::optional<std::string>& /*value*/) {});
  EXPECT_THROW(line.Read(Pointers({"--pen=red", "draw"})), cli::UsageError);
}

TEST(CommandLineTest, FlagIsGivenOrNot) {
  EXPECT_TRUE(Read({"--fast", "--", "x"}).fast);
  EXPECT_TRUE(Read({"--fast", "--fast", "--", "x"}).fast);
  EXPECT_FALSE(Read({"--", "x"}).fast);
}

TEST(CommandLineTest, WordsAfterTheDashesAreTakenAsTheyAre) {
  const Words command = {"x", "--fast", "--log=", "--", "[a,b]", "--help", "", "++", "-y"};
  Words words = {"--log", "a", "--"};
  words.insert(words.end(), command.begin(), command.end());
  const Reading reading = Read(words);
  EXPECT_EQ(reading.problem, "");
  EXPECT_EQ(reading.answer, std::nullopt);
  EXPECT_EQ(reading.command, command);
  EXPECT_EQ(reading.logs, (Words{"a"}));
  EXPECT_FALSE(reading.fast);
}

TEST(CommandLineTest, WordsAfterTheDashesMustBeThere) {
  EXPECT_EQ(Read({}).problem, "COMMAND is missing after '--'");
  EXPECT_EQ(Read({"--fast"}).problem, "COMMAND is missing after '--'");
  EXPECT_EQ(Read({"--"}).problem, "COMMAND is missing after '--'");
}

TEST(CommandLineTest, HelpIsTheAnswerWhateverElseIsGiven) {
  EXPECT_EQ(Read({"--help"}).answer, "help text\n");
  EXPECT_EQ(Read({"--fast", "--help", "--log", "bad", "--", "x"}).answer, "help text\n");
}

TEST(CommandLineTest, VersionIsTheAnswerWithTheNameOfTheProgram) {
  EXPECT_EQ(Read({"--version"}).answer, "tool " TARNWICK_VERSION "\n");
}

TEST(CommandLineTest, UnknownOptionIsNamedWithoutItsValue) {
  EXPECT_EQ(Read({"--x", "--", "y"}).problem, "unknown option '--x'");
  EXPECT_EQ(Read({"--fast", "--x=3", "--", "y"}).problem, "unknown option '--x'");
  EXPECT_EQ(Read({"-xy", "--", "y"}).problem, "unknown option '-xy'");
  EXPECT_EQ(Read({"-1", "--", "y"}).problem, "unknown option '-1'");
  EXPECT_EQ(Read({"---", "--", "y"}).problem, "unknown option '---'");
  EXPECT_EQ(Read({"--lo", "a", "--", "y"}).problem, "unknown option '--lo'");
  EXPECT_EQ(Read({"-h"}).problem, "unknown option '-h'");
}

TEST(CommandLineTest, FirstOfSeveralWrongWordsIsNamed) {
  EXPECT_EQ(Read({"--y", "word", "--x", "--", "z"}).problem, "unknown option '--y'");
}

TEST(CommandLineTest, LooseWordIsNamed) {
  for (const std::string word : {"x", "", "-", "++"}) {
    EXPECT_EQ(Read({"--fast", word, "--", "y"}).problem,
              "unexpected word '" + word + "' (COMMAND comes after '--')");
  }
}

TEST(CommandLineTest, MissingValueIsRefused) {
  EXPECT_EQ(Read({"--fast", "--log"}).problem, "option '--log' needs a value");
}

TEST(CommandLineTest, ValueOfAFlagIsRefused) {
  EXPECT_EQ(Read({"--fast=9", "--", "x"}).problem, "option '--fast' takes no value");
}

TEST(CommandLineTest, WrongValueIsRefusedAfterTheNameOfItsOption) {
  EXPECT_EQ(Read({"--log", "a", "--log", "bad", "--", "x"}).problem, "--log: 'bad' is no log");
}

TEST(CommandLineTest, CommandHasOptionsOfItsOwn) {
  const CommandReading drawn = ReadCommand({"draw", "--pen=", "--pen", "print"});
  EXPECT_EQ(drawn.problem, "");
  EXPECT_TRUE(drawn.draw);
  EXPECT_FALSE(drawn.print);
  EXPECT_EQ(drawn.pen, "print");
  const CommandReading printed = ReadCommand({"print", "--twice"});
  EXPECT_EQ(printed.problem, "");
  EXPECT_FALSE(printed.draw);
  EXPECT_TRUE(printed.print);
  EXPECT_TRUE(printed.twice);
}

TEST(CommandLineTest, CommandsCanShareWhatTheirFlagsSet) {
  bool draw = false;
  bool print = false;
  bool fast = false;
  cli::CommandLine line("tool", "");
  line.AddCommand("draw", draw).AddFlag("--fast", fast);
  line.AddCommand("print", print).AddFlag("--fast", fast);
  EXPECT_EQ(line.Read(Pointers({"draw", "--fast"})), std::nullopt);
  EXPECT_TRUE(fast);
}

TEST(CommandLineTest, OptionOfAnotherCommandIsUnknown) {
  EXPECT_EQ(ReadCommand({"draw", "--twice"}).problem, "unknown option '--twice'");
  EXPECT_EQ(ReadCommand({"print", "--pen", "x"}).problem, "unknown option '--pen'");
  EXPECT_EQ(ReadCommand({"--twice", "draw"}).problem, "unknown option '--twice'");
}

TEST(CommandLineTest, OptionBeforeItsCommandIsToldWhereItBelongs) {
  EXPECT_EQ(ReadCommand({"--twice", "print"}).problem, "option '--twice' comes after the command");
  EXPECT_EQ(ReadCommand({"--pen=x", "draw"}).problem, "option '--pen' comes after the command");
  EXPECT_EQ(ReadCommand({"--twice"}).problem, "option '--twice' comes after the command");
}

TEST(CommandLineTest, OptionErrorsOfACommandNameTheOption) {
  EXPECT_EQ(ReadCommand({"draw", "--pen"}).problem, "option '--pen' needs a value");
  EXPECT_EQ(ReadCommand({"print", "--twice=no"}).problem, "option '--twice' takes no value");
}

TEST(CommandLineTest, HelpAndVersionNeedNoCommandAndCanFollowOne) {
  EXPECT_EQ(ReadCommand({"--help"}).answer, "help text\n");
  EXPECT_EQ(ReadCommand({"draw", "--help"}).answer, "help text\n");
  EXPECT_EQ(ReadCommand({"--version"}).answer, "tool " TARNWICK_VERSION "\n");
  EXPECT_EQ(ReadCommand({"draw", "--version"}).answer, "tool " TARNWICK_VERSION "\n");
}

TEST(CommandLineTest, JustOneCommandIsTaken) {
  EXPECT_EQ(ReadCommand({}).problem, "a word is missing: draw or print");
  EXPECT_EQ(ReadCommand({"Draw"}).problem, "unknown word 'Draw' (expected draw or print)");
  EXPECT_EQ(ReadCommand({"draw", "print"}).problem, "unexpected word 'print'");
  EXPECT_EQ(ReadCommand({"draw", "draw"}).problem, "unexpected word 'draw'");
  EXPECT_EQ(ReadCommand({"draw", "more"}).problem, "unexpected word 'more'");
}

TEST(CommandLineTest, WordsAfterTheDashesAreLooseWordsToAToolThatTakesNone) {
  EXPECT_EQ(ReadCommand({"draw", "--"}).problem, "");
  EXPECT_EQ(ReadCommand({"draw", "--", "more"}).problem, "unexpected word 'more'");
  EXPECT_EQ(ReadCommand({"--", "draw"}).problem, "unknown word 'draw' (expected draw or print)");
}

// --- The words of a command ---------------------------------------------------------------------

/// What a tool with `copy FROM TO [--fast]`, `print` and `list` has read.
struct WordReading {
  std::string problem;
  std::string from;
  std::string to;
  bool fast = false;
};

WordReading ReadWords(const Words& words) {
  WordReading reading;
  bool copy = false;
  bool print = false;
  cli::CommandLine line("tool", "");
  cli::OptionSet& options = line.AddCommand("copy", copy);
  options.AddFlag("--fast", reading.fast);
  options.AddWord("FROM", [&](const std::string& word) {
    if (word == "bad") {
      throw std::invalid_argument("'bad' cannot be copied");
    }
    reading.from = word;
  });
  options.AddWord("TO", [&](const std::string& word) { reading.to = word; });
  line.AddCommand("print", print);
  try {
    static_cast<void>(line.Read(Pointers(words)));
  } catch (const cli::UsageError& error) {
    reading.problem = error.what();
  }
  return reading;
}

TEST(CommandLineTest, WordsOfACommandAreTakenInTheirOrderWithOptionsBetween) {
  for (const Words& words : {Words{"copy", "a", "b", "--fast"},
                             Words{"copy", "--fast", "a", "b"},
                             Words{"copy", "a", "--fast", "b"}}) {
    const WordReading reading = ReadWords(words);
    EXPECT_EQ(reading.problem, "");
    EXPECT_EQ(reading.from, "a");
    EXPECT_EQ(reading.to, "b");
    EXPECT_TRUE(reading.fast);
  }
}

TEST(CommandLineTest, WordOfACommandMayBeEmptyOrNamedAsACommand) {
  const WordReading reading = ReadWords({"copy", "", "print"});
  EXPECT_EQ(reading.problem, "");
  EXPECT_EQ(reading.from, "");
  EXPECT_EQ(reading.to, "print");
}

TEST(CommandLineTest, WordsAfterTheDashesAreWordsOfTheCommand) {
  const WordReading reading = ReadWords({"copy", "a", "--", "--fast"});
  EXPECT_EQ(reading.problem, "");
  EXPECT_EQ(reading.from, "a");
  EXPECT_EQ(reading.to, "--fast");
  EXPECT_FALSE(reading.fast);
}

TEST(CommandLineTest, MissingWordOfACommandIsNamed) {
  EXPECT_EQ(ReadWords({"copy"}).problem, "a word is missing: FROM");
  EXPECT_EQ(ReadWords({"copy", "a"}).problem, "a word is missing: TO");
}

TEST(CommandLineTest, WordBeyondThoseOfACommandIsNamed) {
  EXPECT_EQ(ReadWords({"copy", "a", "b", "c", "d"}).problem, "unexpected word 'c'");
  EXPECT_EQ(ReadWords({"copy", "a", "b", "--", "c"}).problem, "unexpected word 'c'");
  EXPECT_EQ(ReadWords({"print", "a"}).problem, "unexpected word 'a'");
}

TEST(CommandLineTest, WordBeforeTheCommandIsNotOneOfItsWords) {
  EXPECT_EQ(ReadWords({"a", "copy", "b"}).problem, "unexpected word 'a'");
}

TEST(CommandLineTest, UnknownOptionIsNoWordOfACommand) {
  EXPECT_EQ(ReadWords({"copy", "a", "-1"}).problem, "unknown option '-1'");
}

TEST(CommandLineTest, WrongWordIsRefusedAfterItsName) {
  EXPECT_EQ(ReadWords({"copy", "bad", "b"}).problem, "FROM: 'bad' cannot be copied");
}

TEST(CommandLineTest, UsageTextIsTheProblemAndWhereToLook) {
  EXPECT_EQ(cli::UsageText("tool", "unknown option '--x'"),
            "tool: unknown option '--x'\nTry 'tool --help'.\n");
}

}  // namespace
