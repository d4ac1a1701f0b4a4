#include "cli/CommandLine.h"

#include <algorithm>
#include <utility>

#include <CLI/CLI.hpp>

#include "base/Version.h"

namespace cli {

namespace {

constexpr std::string_view kDashes = "--";

bool IsOption(std::string_view word) { return word.size() > 1 && word.front() == '-'; }

/// "--log" for "--log=FILE"
std::string_view NameIn(std::string_view option) { return option.substr(0, option.find('=')); }

/// Hands a value over to the one that takes it.
template <typename Take, typename Value>
void Hand(const Take& take, const std::string& name, const Value& value) {
  try {
    take(value);
  } catch (const std::invalid_argument& error) {
    throw UsageError(name + ": " + error.what());
  }
}

}  // namespace

std::string UsageText(std::string_view program, std::string_view why) {
  const std::string name(program);
  return name + ": " + std::string(why) + "\nTry " + Quoted(name + " --help") + ".\n";
}

std::string Quoted(std::string_view word) { return std::string("'").append(word).append("'"); }

// --- OptionSet ----------------------------------------------------------------------------------

void OptionSet::AddFlag(const std::string& name, bool& given) {
  flags_.push_back({app_.add_flag(name)->disable_flag_override(), &given});
}

void OptionSet::AddOption(const std::string& name, Take take) {
  CLI::Option* const option = app_.add_option(name);
  option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  values_.push_back({option, name, std::move(take)});
}

void OptionSet::AddOptionalValue(const std::string& name, TakeOptional take) {
  CLI::Option* const option = app_.add_flag(name)->disable_flag_override();
  optionalValues_.push_back({option, name, std::move(take), {}});
}

void OptionSet::AddWord(std::string name, Take take) {
  words_.push_back({std::move(name), std::move(take)});
}

bool OptionSet::TakesValue(std::string_view name) const {
  return std::any_of(
      values_.begin(), values_.end(), [&](const Value& value) { return value.name == name; });
}

/// Keeps the value of an option that can have one.
/// @param word  "NAME" or "NAME=VALUE"
/// @return whether there is such an option
bool OptionSet::NoteOptionalValue(std::string_view word) {
  const std::string_view name = NameIn(word);
  const auto known = std::find_if(
      optionalValues_.begin(), optionalValues_.end(), [&](const OptionalValue& candidate) {
        return candidate.name == name;
      });
  if (known == optionalValues_.end()) {
    return false;
  }
  known->given.push_back(name.size() == word.size()
                             ? std::nullopt
                             : std::optional<std::string>(word.substr(name.size() + 1)));
  return true;
}

void OptionSet::Deliver() const {
  for (const Flag& flag : flags_) {
    *flag.given = *flag.given || flag.option->count() > 0;
  }
  for (const Value& value : values_) {
    for (const std::string& result : value.option->results()) {
      Hand(value.take, value.name, result);
    }
  }
  for (const OptionalValue& value : optionalValues_) {
    if (value.option->count() == 0) {
      continue;  // it was given to another command
    }
    for (const std::optional<std::string>& given : value.given) {
      Hand(value.take, value.name, given);
    }
  }
}

/// @param words  at most as many as there are places for them
void OptionSet::DeliverWords(const std::vector<std::string>& words) const {
  if (words.size() < words_.size()) {
    throw UsageError("a word is missing: " + words_[words.size()].name);
  }
  for (std::size_t i = 0; i < words.size(); ++i) {
    Hand(words_[i].take, words_[i].name, words[i]);
  }
}

// --- CommandLine --------------------------------------------------------------------------------

CommandLine::CommandLine(std::string program, std::string_view help)
    : program_(std::move(program)),
      help_(help),
      app_(std::make_unique<CLI::App>("", program_)),
      options_(*app_) {
  app_->set_help_flag("--help");
  app_->set_version_flag("--version", VersionText());
  app_->allow_extras();  // so that the word that is wrong can be named
  app_->require_subcommand(0, 1);
}

CommandLine::~CommandLine() = default;

std::string CommandLine::VersionText() const { return program_ + " " + orvane::kVersion + "\n"; }

OptionSet& CommandLine::AddCommand(const std::string& word, bool& given) {
  CLI::App* const app = app_->add_subcommand(word);
  app->set_version_flag("--version", VersionText());
  commands_.push_back({app, &given, std::make_unique<OptionSet>(*app)});
  return *commands_.back().options;
}

void CommandLine::AddRest(std::string name, std::vector<std::string>& words) {
  restName_ = std::move(name);
  rest_ = &words;
}

bool CommandLine::TakesValue(std::string_view name) const {
  return options_.TakesValue(name) ||
         std::any_of(commands_.begin(), commands_.end(), [&](const Command& command) {
           return command.options->TakesValue(name);
         });
}

bool CommandLine::NoteOptionalValue(std::string_view word) {
  bool isKnown = options_.NoteOptionalValue(word);
  for (const Command& command : commands_) {
    isKnown = command.options->NoteOptionalValue(word) || isKnown;
  }
  return isKnown;
}

/// Keeps the words after "--" in afterDashes_, and the values of options that can have one.
/// @return the words before it, without these values. CLI11 would take the next word as the value of
///         "--log=", so an empty value becomes a word of its own.
std::vector<std::string> CommandLine::CutRest(std::span<const char* const> words) {
  std::vector<std::string> front;
  bool isValue = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    if (!isValue && word == kDashes) {
      const auto rest = words.subspan(i + 1);
      afterDashes_.assign(rest.begin(), rest.end());
      break;
    }
    const std::string_view name = NameIn(word);
    if (!isValue && NoteOptionalValue(word)) {
      front.emplace_back(name);
      continue;
    }
    if (!isValue && name.size() + 1 == word.size() && TakesValue(name)) {
      front.insert(front.end(), {std::string(name), ""});
      continue;
    }
    front.emplace_back(word);
    isValue = !isValue && TakesValue(word);
  }
  return front;
}

std::string CommandLine::CommandWords() const {
  std::string words;
  for (const Command& command : commands_) {
    words += (words.empty() ? "" : " or ") + command.app->get_name();
  }
  return words;
}

void CommandLine::Refuse(const CLI::ParseError& error) const {
  if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::ArgumentMismatch)) {
    throw UsageError(error.what());
  }
  // "--log: 1 required ..." for a missing value, "fast was given ..." for one that is not allowed.
  const std::string_view text = error.what();
  const std::string_view name = text.substr(0, text.find_first_of(": "));
  if (TakesValue(name)) {
    throw UsageError("option " + Quoted(name) + " needs a value");
  }
  throw UsageError("option " + Quoted(std::string(kDashes).append(name)) + " takes no value");
}

/// @return the command that was given; null when there was none
const CommandLine::Command* CommandLine::GivenCommand() const {
  const auto found = std::find_if(commands_.begin(), commands_.end(), [](const Command& command) {
    return command.app->parsed();
  });
  return found == commands_.end() ? nullptr : &*found;
}

/// @param loose  takes what has no place
/// @return the words of the command that was given, as many as it has places for
std::vector<std::string> CommandLine::CutWords(std::vector<std::string>& loose) const {
  loose = app_->remaining(false);
  const Command* const command = GivenCommand();
  std::vector<std::string> words;
  if (command != nullptr) {
    for (std::string& word : command->app->remaining(false)) {
      (IsOption(word) ? loose : words).push_back(std::move(word));
    }
  }
  if (rest_ == nullptr) {
    words.insert(words.end(), afterDashes_.begin(), afterDashes_.end());
  }
  const std::size_t places = command == nullptr ? 0 : command->options->words_.size();
  if (words.size() > places) {
    loose.insert(loose.end(), words.begin() + static_cast<std::ptrdiff_t>(places), words.end());
    words.resize(places);
  }
  return words;
}

/// @param name  of an option that stands before the command, or without one
/// @return whether it belongs behind the command
bool CommandLine::IsOfCommand(std::string_view name) const {
  const Command* const given = GivenCommand();
  return std::any_of(commands_.begin(), commands_.end(), [&](const Command& command) {
    return (given == nullptr || given == &command) &&
           command.app->get_option_no_throw(std::string(name)) != nullptr;
  });
}

void CommandLine::RefuseLooseWords(const std::vector<std::string>& loose) const {
  const bool isCommandMissing = !commands_.empty() && GivenCommand() == nullptr;
  if (loose.empty()) {
    if (isCommandMissing) {
      throw UsageError("a word is missing: " + CommandWords());
    }
    return;
  }
  const std::string& word = loose.front();
  if (IsOption(word)) {
    const std::string name = Quoted(NameIn(word));
    const bool isBeforeCommand = !app_->remaining(false).empty();
    if (isBeforeCommand && IsOfCommand(NameIn(word))) {
      throw UsageError("option " + name + " comes after the command");
    }
    throw UsageError("unknown option " + name);
  }
  if (isCommandMissing) {
    throw UsageError("unknown word " + Quoted(word) + " (expected " + CommandWords() + ")");
  }
  throw UsageError("unexpected word " + Quoted(word) +
                   (rest_ == nullptr ? "" : " (" + restName_ + " comes after '--')"));
}

std::optional<std::string> CommandLine::Read(std::span<const char* const> words) {
  std::vector<std::string> front = CutRest(words);
  std::reverse(front.begin(), front.end());  // CLI11 takes them from the last to the first
  try {
    app_->parse(std::move(front));
  } catch (const CLI::CallForHelp&) {
    return help_;
  } catch (const CLI::CallForVersion& version) {
    return version.what();
  } catch (const CLI::ParseError& error) {
    Refuse(error);
  }
  std::vector<std::string> loose;
  const std::vector<std::string> commandWords = CutWords(loose);
  RefuseLooseWords(loose);
  if (rest_ != nullptr) {
    if (afterDashes_.empty()) {
      throw UsageError(restName_ + " is missing after '--'");
    }
    *rest_ = afterDashes_;
  }
  options_.Deliver();
  for (const Command& command : commands_) {
    *command.given = command.app->parsed();
    if (command.app->parsed()) {
      command.options->DeliverWords(commandWords);
    }
    command.options->Deliver();
  }
  return std::nullopt;
}

}  // namespace cli
