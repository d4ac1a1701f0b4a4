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

/// Options that are known together: those of a program, or of one of its commands. What they fill in
/// must live until the command line has been read.
class OptionSet {
 public:
  /// Takes one value. Throws std::invalid_argument, with a text for the user, when it is wrong; the
  /// option's name is put in front of it.
  using Take = std::function<void(const std::string& value)>;

  explicit OptionSet(CLI::App& app) : app_(app) {}

  /// An option without a value, which sets `given`. Commands can share one `given`.
  void AddFlag(const std::string& name, bool& given);
  /// An option with a value, "NAME VALUE" or "NAME=VALUE". `take` gets every value, in their order,
  /// after all words have been read: an option that is no list keeps the last one.
  void AddOption(const std::string& name, Take take);

 private:
  friend class CommandLine;

  struct Flag {
    CLI::Option* option;
    bool* given;
  };
  struct Value {
    CLI::Option* option;
    std::string name;
    Take take;
  };

  bool TakesValue(std::string_view name) const;
  void Deliver() const;

  CLI::App& app_;
  std::vector<Flag> flags_;
  std::vector<Value> values_;
};

/// The command line of one of our tools, read with CLI11. All of them know --help and --version.
class CommandLine {
 public:
  /// @param program  the name under which it speaks
  /// @param help     what --help prints
  CommandLine(std::string program, std::string_view help);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine();

  OptionSet& Options() { return options_; }
  /// A word that says what to do, with options of its own after it. When there are such words, just
  /// one of them must be given.
  OptionSet& AddCommand(const std::string& word, bool& given);
  /// The words after "--", whatever they are; there must be one at least. `name` is how the help
  /// calls them.
  void AddRest(std::string name, std::vector<std::string>& words);

  /// Reads the words and fills in everything that has been added.
  /// @param words  without the program's name
  /// @return what to print on standard output, and nothing else is to be done then: the answer to
  ///         --help or --version, which win over values that are wrong; nothing: go on
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
  std::vector<std::string> CutRest(std::span<const char* const> words);
  [[noreturn]] void Refuse(const CLI::ParseError& error) const;
  void RefuseLooseWords() const;
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
