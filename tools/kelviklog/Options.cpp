#include "Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>

namespace KelvikLog {

namespace {

constexpr std::size_t kNameLimit = 127;    // characters of a module or a title
constexpr std::size_t kConfigLimit = 127;  // characters of the configuration file's path
constexpr int32_t kSizeKibLimit = 2097151;
constexpr int32_t kCountLimit = 10;

constexpr char kDescription[] =
    "Logs each line of the FILEs, or of standard input, as one record: to the terminal, to syslog\n"
    "and to a ring of files.";

constexpr char kNotes[] =
    "A line that is too long for a record becomes several; a NUL byte is shown as \\0, or as\n"
    "\\x00 with --escape.\n"
    "SIGTERM, SIGINT and SIGHUP end the program once all that was read is written.\n"
    "Exit code: 0 every record was delivered, 1 something failed (one line says what), 64 bad\n"
    "usage.";

// Shows a pair of switches as "--[no-]name".
class CHelpFormat : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override {
    return "Usage: kelviklog [options] [FILE...]\n";
  }
  std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
    return option->get_fnames().empty() ? CLI::Formatter::make_option_name(option, isPositional)
                                        : "--[no-]" + option->get_lnames().front();
  }
};

// CLI11 takes the values of a positional option apart when they look like "[a,b]"; a file may be
// called that. So FILE is no option, but what the options leave over.
class CCommandLine : public CLI::App {
 public:
  CCommandLine() : CLI::App(kDescription, "kelviklog") { allow_extras(); }

  std::vector<std::string> Files() const {
    std::vector<std::string> files;
    for (const auto& [kind, text] : missing_) {
      if (kind == CLI::detail::Classifier::NONE) {
        files.push_back(text);
      } else if (kind != CLI::detail::Classifier::POSITIONAL_MARK) {
        throw CLI::ExtrasError({text});
      }
    }
    return files;
  }
};

// A check returns what is wrong with the text, or nothing.

CLI::Validator Limit(std::size_t limit, bool mayBeEmpty) {
  const auto check = [limit, mayBeEmpty](std::string& text) {
    if (text.empty() && !mayBeEmpty) {
      return std::string("is empty");
    }
    return text.size() <= limit ? std::string()
                                : "is longer than " + std::to_string(limit) + " characters";
  };
  return CLI::Validator(check, "");
}

CLI::Validator Number(int32_t limit) {
  return CLI::Range(1, limit).description("");
}

// Replaces a level's name with its number.
CLI::Validator LevelName() {
  const auto replace = [](std::string& text) {
    static const std::map<std::string, eLogLevel> kLevels = {{"debug", eLogLevelDebug},
                                                             {"info", eLogLevelInfo},
                                                             {"warning", eLogLevelWarning},
                                                             {"error", eLogLevelError},
                                                             {"fatal", eLogLevelFatal}};
    const auto found = kLevels.find(text);
    if (found == kLevels.end()) {
      return text + " is not debug, info, warning, error or fatal";
    }
    text = std::to_string(found->second);
    return std::string();
  };
  return CLI::Validator(replace, "");
}

void AddRecordOptions(CLI::App& app, tagOptions& options) {
  app.add_option("-m,--module", options.m_Module, "Module name of the records [none]")
      ->type_name("NAME")
      ->check(Limit(kNameLimit, true));
  app.add_option("-t,--title", options.m_Title, "Title of the records [none]")
      ->type_name("NAME")
      ->check(Limit(kNameLimit, true));
  app.add_option("-l,--level", options.m_Level, "debug, info, warning, error or fatal [info]")
      ->type_name("LEVEL")
      ->transform(LevelName());
  app.add_flag("--priority-prefix", options.m_ReadsPriority,
               "Take a line's level from <0> to <7> in front of it, and remove that");
  app.add_flag("--time,!--no-time")->description("Begin records with date and time [on]");
  app.add_flag("--tid", options.m_ThreadId, "Show the thread id in records");
  app.add_flag("--escape,!--no-escape")
      ->description(
          "Show control bytes of a line, but for tabs, as \\xNN, so that they\n"
          "cannot drive a terminal [on when standard output is one]");
}

void AddOutputOptions(CLI::App& app, tagOptions& options) {
  app.add_flag("--terminal,!--no-terminal")
      ->description("Write to standard output, coloured by level [on]");
  app.add_flag("--syslog", options.m_Syslog, "Write to the system log");
  app.add_flag("--file,!--no-file")
      ->description("Write to the ring of files [on with --dir or --config]");
  app.add_option("--dir", options.m_Folder, "Folder of the ring of files [/tmp/]")
      ->type_name("DIR");
  CLI::Option* const size =
      app.add_option("--size", options.m_SizeKib, "Change the file when it has KIB KiB [1024]")
          ->type_name("KIB")
          ->check(Number(kSizeKibLimit));
  app.add_option("--duration", options.m_Duration,
                 "Change the file every SECONDS seconds, whatever its size")
      ->type_name("SECONDS")
      ->check(Number(std::numeric_limits<int32_t>::max()))
      ->excludes(size);
  app.add_option("--count", options.m_Count, "Keep N files, 1 to 10 [2]")
      ->type_name("N")
      ->check(Number(kCountLimit));
  app.add_option("--config", options.m_Config,
                 "Read settings from this INI file, over which options win (records of\n"
                 "a level that it switches off are dropped), and keep the list of files\n"
                 "in it, so that the next run goes on with the same ring")
      ->type_name("FILE")
      ->check(Limit(kConfigLimit, false));
  app.add_flag("--progress,!--no-progress")
      ->description(
          "Show on standard error, if it is a terminal, how much of a long\n"
          "file has been read [on unless records are shown on a terminal]");
}

// What the switch was set to by its last occurrence, if there was one.
std::optional<bool> Given(const CLI::App& app, const char* name) {
  const CLI::Option* const option = app.get_option(name);
  return option->count() > 0 ? std::optional<bool>(option->as<bool>()) : std::nullopt;
}

// CLI11's texts may have several lines; ours is one.
std::string OneLine(std::string text) {
  for (char& character : text) {
    if (character == '\n') character = ' ';
  }
  return text;
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, tagOptions& options) {
  CCommandLine app;
  app.formatter(std::make_shared<CHelpFormat>());
  app.footer(kNotes);
  app.set_version_flag("--version", "kelviklog " KELVIK_VERSION);
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  AddRecordOptions(app, options);
  AddOutputOptions(app, options);
  try {
    app.parse(argc, argv);
    options.m_Files = app.Files();
  } catch (const CLI::Success& wish) {
    app.exit(wish);
    return std::fflush(stdout) == 0 ? kExitDelivered : kExitFailed;
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "kelviklog: %s (kelviklog --help tells more)\n",
                 OneLine(error.what()).c_str());
    return kExitUsage;
  }
  options.m_Terminal = Given(app, "--terminal");
  options.m_File = Given(app, "--file");
  options.m_Time = Given(app, "--time");
  options.m_Escape = Given(app, "--escape");
  options.m_Progress = Given(app, "--progress");
  if (options.m_Files.empty()) {
    options.m_Files.emplace_back("-");
  }
  return std::nullopt;
}

}  // namespace KelvikLog
