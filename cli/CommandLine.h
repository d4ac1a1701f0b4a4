#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class Option;
class ParseError;
}  // namespace CLI

namespace cli {

/// What a program exits with after a usage error.
inline constexpr int kExitUsage = 2;

/// A command line that cannot be carried out. The text is one line for the user, without the
/// program's name, and names the word that is wrong.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// "PROGRAM: WHY" and "Try 'PROGRAM --help'.", a line each.
std::string UsageText(std::string_view program, std::string_view why);

/// 'word'
std::string Quoted(std::string_view word);

/// The options of a program, or of one of its commands. The variables that they set must exist
/// until the command line has been read.
class OptionSet {
 public:
  /// Takes one value. Throws std::invalid_argument, with a text for the user, when it is wrong; the
  /// message then starts with the option's name.
  using Take = std::function<void(const std::string& value)>;
  /// The same for a value that can be left out.
  using TakeOptional = std::function<void(const std::optional<std::string>& value)>;

  explicit OptionSet(CLI::App& app) : app_(app) {}

  /// An option without a value, which sets `given`. Commands can share one `given`.
  void AddFlag(const std::string& name, bool& given);
  /// An option with a value, "NAME VALUE" or "NAME=VALUE". `take` gets every value, in their order,
  /// after all words have been read: an option that is no list keeps the last one.
  void AddOption(const std::string& name, Take take);
  /// An option that can stand alone, "NAME", or have a value, "NAME=VALUE", which can be empty; the next
  /// word is never its value. `take` gets every value likewise, none where the option stands alone.
  void AddOptionalValue(const std::string& name, TakeOptional take);
  /// A word that must be given. Such words are told apart by their order alone; options can stand
  /// between them. After "--" every word is one of them, also one that begins with '-'.
  /// @param name  what the help calls it; a message about a wrong word starts with it
  void AddWord(std::string name, Take take);

 private:
  friend class CommandLine;

  struct Word {
    std::string name;
    Take take;
  };

  struct Flag {
    CLI::Option* option;
    bool* given;
  };
  struct Value {
    CLI::Option* option;
    std::string name;
    Take take;
  };

  struct OptionalValue {
    CLI::Option* option;
    std::string name;
    TakeOptional take;
    std::vector<std::optional<std::string>> given;
  };

  bool TakesValue(std::string_view name) const;
  bool NoteOptionalValue(std::string_view word);
  void Deliver() const;
  void DeliverWords(const std::vector<std::string>& words) const;

  CLI::App& app_;
  std::vector<Flag> flags_;
  std::vector<Value> values_;
  std::vector<OptionalValue> optionalValues_;
  std::vector<Word> words_;
};

/// The command line of one of our tools, read with CLI11. All of them know --help and --version.
class CommandLine {
 public:
  /// @param program  its name in messages
  /// @param help     what --help prints
  CommandLine(std::string program, std::string_view help);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine();

  OptionSet& Options() { return options_; }
  /// A word that says what to do, with options of its own after it; sets `given`. When a program
  /// has such words, exactly one of them must be given.
  /// @return the options of this command, owned by this object
  OptionSet& AddCommand(const std::string& word, bool& given);
  /// Takes the words after "--", whatever they are; there must be at least one. `name` is what the
  /// help calls them.
  void AddRest(std::string name, std::vector<std::string>& words);

  /// Reads the words and fills in everything that has been added.
  /// @param words  without the program's name
  /// @return the answer to --help or --version: the caller prints it on standard output and does
  ///         nothing else. These two take precedence over wrong values. Nothing: go on.
  /// @throw UsageError
  std::optional<std::string> Read(std::span<const char* const> words);

 private:
  struct Command {
    CLI::App* app;
    bool* given;
    std::unique_ptr<OptionSet> options;
  };

  std::string VersionText() const;
  bool TakesValue(std::string_view name) const;
  bool NoteOptionalValue(std::string_view word);
  std::vector<std::string> CutRest(std::span<const char* const> words);
  [[noreturn]] void Refuse(const CLI::ParseError& error) const;
  const Command* GivenCommand() const;
  std::vector<std::string> CutWords(std::vector<std::string>& loose) const;
  bool IsOfCommand(std::string_view name) const;
  void RefuseLooseWords(const std::vector<std::string>& loose) const;
  std::string CommandWords() const;

  std::string program_;
  std::string help_;
  std::unique_ptr<CLI::App> app_;
  OptionSet options_;
  std::vector<Command> commands_;
  std::string restName_;
  std::vector<std::string>* rest_ = nullptr;
  std::vector<std::string> afterDashes_;
};

}  // namespace cli
