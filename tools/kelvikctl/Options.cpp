#include "Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "Datagram.h"
#include "Failure.h"

namespace KelvikCtl {

namespace {

constexpr std::size_t kNameBytes = 127;  // of a registered module or title
constexpr std::size_t kTextBytes = 255;  // of a path or a module in focus
constexpr int kMostTimeOut = 3600;
constexpr int kMostSeconds = 2000000;

constexpr char kDescription[] =
    "Asks and changes a running process that logs through Kelvik and has its console open; shows\n"
    "its log files and checks its configuration file.";

constexpr char kNotes[] =
    "LEVEL is debug, info, warning, error or fatal, or 1 to 5. The console never replies: what it\n"
    "shows comes over a pseudo-terminal of this user, so run kelvikctl as the user of the "
    "process.\n"
    "Exit code: 0 done; 1 a reading contradicts what was asked, or the process could not do it;\n"
    "2 nobody listens, no answer came in time, or a configuration file cannot be read; 64 bad\n"
    "usage, nothing was sent. 'check' ends with 1 when it has something to say.";

// The words of the command line as they stand; they become options when all of it has been read.
struct tagWords {
  std::string m_Port = "8799";
  std::string m_TimeOut = "5";
  std::string m_Every = "2";
  std::string m_For;
  bool m_HasFor = false;
  std::string m_First = "all";  // only "save" leaves it so
  std::string m_Second;
  std::string m_Third;
  bool m_HasThird = false;
  std::vector<std::string> m_Text;  // of "send"
  std::string m_Lines;
  bool m_HasLines = false;
};

using Finish = std::function<void(tagOptions& options, const tagWords& words)>;

[[noreturn]] void Refuse(const std::string& reason) {
  throw CFailure(kExitUsage, reason);
}

std::string Word(const std::string& text, std::size_t mostBytes) {
  const std::string problem = WordProblem(text, mostBytes);
  if (!problem.empty()) Refuse(problem);
  return text;
}

int Milliseconds(const std::string& text, int most) {
  const auto ms = ParseSeconds(text, most);
  if (!ms) {
    Refuse("'" + Printable(text) + "' is not 0.1 to " + std::to_string(most) + " seconds");
  }
  return *ms;
}

bool OnOff(const std::string& text) {
  const auto isOn = ParseOnOff(text);
  if (!isOn) Refuse("'" + Printable(text) + "' is not on or off");
  return *isOn;
}

int32_t Number(const std::string& text) {
  const auto number = ParseNumber(text);
  if (!number) Refuse("'" + Printable(text) + "' is no whole number of 32 bits");
  return *number;
}

Finish FinishSwitch(eSwitch first, eSwitch last, const char* names) {
  return [first, last, names](tagOptions& options, const tagWords& words) {
    const auto which = ParseSwitch(words.m_First, first, last);
    if (!which) Refuse("'" + Printable(words.m_First) + "' is not " + names);
    options.m_Action = eAction::kSwitch;
    options.m_Switch = *which;
    options.m_On = OnOff(words.m_Second);
    if (words.m_HasThird) options.m_Module = Word(words.m_Third, kTextBytes);
  };
}

void FinishLimit(tagOptions& options, const tagWords& words) {
  options.m_Action = eAction::kLimit;
  options.m_Limit = FindLimit(words.m_First);
  if (options.m_Limit == nullptr) {
    Refuse("'" + Printable(words.m_First) + "' is not size, duration, count, buffer or interval");
  }
  options.m_Number = Number(words.m_Second);
  if (!IsAllowed(*options.m_Limit, options.m_Number)) {
    Refuse(std::string(options.m_Limit->m_Name) + " is " + options.m_Limit->m_Range);
  }
}

void FinishPath(tagOptions& options, const tagWords& words) {
  options.m_Action = eAction::kPath;
  options.m_Text = Word(words.m_First, kTextBytes - 1);
  // The names of the files are appended to it as it stands.
  if (options.m_Text.back() != '/') options.m_Text += '/';
}

Finish FinishName(eAction action) {
  return [action](tagOptions& options, const tagWords& words) {
    options.m_Action = action;
    options.m_Module = Word(words.m_First, kNameBytes);
    options.m_Title = Word(words.m_Second, kNameBytes);
    if (action == eAction::kSet) options.m_Number = Number(words.m_Third);
  };
}

Finish FinishText(eAction action) {
  return [action](tagOptions& options, const tagWords& words) {
    options.m_Action = action;
    options.m_Text = Word(words.m_First, kTextBytes);
  };
}

Finish FinishPlain(eAction action) {
  return [action](tagOptions& options, const tagWords&) { options.m_Action = action; };
}

void FinishLogs(tagOptions& options, const tagWords& words) {
  options.m_Action = eAction::kLogs;
  if (!words.m_HasLines) return;
  const auto lines = ParseNumber(words.m_Lines);
  if (!lines || *lines < 0) Refuse("'" + Printable(words.m_Lines) + "' is no number of lines");
  options.m_Lines = static_cast<uint64_t>(*lines);
}

bool IsCommonOption(const std::string& word) {
  return word == "--host" || word == "--port" || word == "--timeout";
}

// Where the text of "send" begins, argc when the command is another one. The text is not for CLI11:
// its words begin with '-'.
int FindText(int argc, char** argv) {
  bool isSend = false;
  for (int at = 1; at < argc; ++at) {
    const std::string word = argv[at];
    const bool isHelp = word == "-h" || word == "--help";
    if (IsCommonOption(word)) {
      ++at;
    } else if (!isHelp && !IsCommonOption(word.substr(0, word.find('=')))) {
      if (isSend) return at;
      if (word != "send") return argc;
      isSend = true;
    }
  }
  return argc;
}

void FinishSend(std::vector<std::string> words, tagOptions& options) {
  if (!words.empty() && words.front() == "--") words.erase(words.begin());
  if (words.empty()) Refuse("send needs a text");
  for (const std::string& word : words)
    Word(word, Kelvik::kDatagramTextBytes);
  options.m_Action = eAction::kSend;
  options.m_Text = JoinWords(words);
  if (options.m_Text.size() > Kelvik::kDatagramTextBytes) {
    Refuse("the text has " + std::to_string(options.m_Text.size()) + " bytes; a datagram takes " +
           std::to_string(Kelvik::kDatagramTextBytes));
  }
}

// The whole command line: CLI11's description of it, and what each command makes of its words.
class CCommandLine {
 public:
  explicit CCommandLine(tagOptions& options)
      : m_Options(options), m_App(kDescription, "kelvikctl") {
    m_App.footer(kNotes);
    m_App.set_version_flag("--version", "kelvikctl " KELVIK_VERSION);
    m_App.require_subcommand(1);
    m_App.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    AddCommon(m_App);
    AddReadings();
    AddChanges();
    AddTerminals();
    AddOthers();
    AddFiles();
  }

  void Parse(int argc, char** argv) {
    const int text = FindText(argc, argv);
    m_Words.m_Text.assign(argv + text, argv + argc);
    m_App.parse(text, argv);
    const CLI::App* const command = m_App.get_subcommands().front();
    m_Words.m_HasFor = IsGiven(*command, "--for");
    m_Words.m_HasThird = IsGiven(*command, "MODULE");
    m_Words.m_HasLines = IsGiven(*command, "--lines");
    FinishCommon();
    m_Finish.at(command)(m_Options, m_Words);
  }

  int Exit(const CLI::Success& wish) { return m_App.exit(wish); }

  // What is wrong, in one line.
  std::string Problem(const CLI::ParseError& error) const {
    const std::vector<std::string> unknown = m_App.remaining();
    const bool isUnknown = m_App.get_subcommands().empty() && !unknown.empty();
    std::string text = isUnknown ? "'" + unknown.front() + "' is no command" : error.what();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return Printable(text) + " (kelvikctl --help tells more)";
  }

 private:
  // An empty word is given as well: a script's variable may be empty by mistake.
  static bool IsGiven(const CLI::App& command, const char* name) {
    const CLI::Option* const option = command.get_option_no_throw(name);
    return option != nullptr && option->count() > 0;
  }

  void FinishCommon() {
    const auto port = ParseNumber(m_Words.m_Port);
    if (!port || *port < 1 || *port > 65535) {
      Refuse("'" + Printable(m_Words.m_Port) + "' is no port from 1 to 65535");
    }
    m_Options.m_Port = static_cast<uint16_t>(*port);
    m_Options.m_TimeOutMs = Milliseconds(m_Words.m_TimeOut, kMostTimeOut);
    m_Options.m_EveryMs = Milliseconds(m_Words.m_Every, kMostSeconds);
    if (m_Words.m_HasFor) m_Options.m_ForMs = Milliseconds(m_Words.m_For, kMostSeconds);
  }

  // Before and behind the command's name alike.
  void AddCommon(CLI::App& app) {
    app.add_option("--host", m_Options.m_Host, "Address of the console [127.0.0.1]")
        ->type_name("ADDRESS");
    app.add_option("--port", m_Words.m_Port, "Port of the console [8799]")->type_name("PORT");
    app.add_option("--timeout", m_Words.m_TimeOut, "How long to wait for an answer [5]")
        ->type_name("SECONDS");
  }

  CLI::App& Add(const char* name, const char* help, const Finish& finish) {
    CLI::App* const command = m_App.add_subcommand(name, help);
    AddCommon(*command);
    m_Finish[command] = finish;
    return *command;
  }

  static CLI::Option* Positional(CLI::App& command, const char* name, std::string& word,
                                 const char* help = "") {
    return command.add_option(name, word, help)->required()->type_name("");
  }

  void AddFor(CLI::App& command, const char* help) {
    command.add_option("--for", m_Words.m_For, help)->type_name("SECONDS");
  }

  void AddReadings() {
    Add("status", "What is switched on, and where log files go", FinishPlain(eAction::kStatus));
    Add("modules", "The registered modules", FinishPlain(eAction::kModules));
    Add("list", "The registered displays, as MODULE TITLE", FinishPlain(eAction::kList));
    CLI::App& show = Add("show", "Print a display", FinishName(eAction::kShow));
    Positional(show, "MODULE", m_Words.m_First);
    Positional(show, "TITLE", m_Words.m_Second);
    CLI::App& watch = Add("watch", "Print a display again and again", FinishName(eAction::kWatch));
    Positional(watch, "MODULE", m_Words.m_First);
    Positional(watch, "TITLE", m_Words.m_Second);
    watch.add_option("-n", m_Words.m_Every, "Time between two [2]")->type_name("SECONDS");
  }

  CLI::App& AddSwitch(const char* name, const char* help, const char* what, eSwitch first,
                      eSwitch last, const char* names) {
    CLI::App& command = Add(name, help, FinishSwitch(first, last, names));
    Positional(command, what, m_Words.m_First, names);
    Positional(command, "on|off", m_Words.m_Second);
    return command;
  }

  void AddChanges() {
    CLI::App& level = AddSwitch("level", "Switch a level on or off", "LEVEL", kFirstLevel,
                                kSwitchFatal, "debug, info, warning, error, fatal or 1 to 5");
    level
        .add_option("MODULE", m_Words.m_Third,
                    "The module whose level it is; without it the level of all records that\n"
                    "belong to no registered module")
        ->type_name("");
    AddFor(level,
           "Switch it back after that time. A module's level cannot be\n"
           "read: it is then switched to the opposite");
    AddSwitch("output", "Switch an output on or off", "OUTPUT", kSwitchTerminal, kSwitchFile,
              "terminal, syslog or file");
    AddSwitch("prefix", "Switch what stands in front of records", "PREFIX", kSwitchTime, kSwitchTid,
              "time or tid");
    CLI::App& limit = Add("limit", "Change a limit of the log files or the buffer", FinishLimit);
    Positional(limit, "LIMIT", m_Words.m_First,
               "size (KiB), duration (s), count, buffer (KiB) or interval (ms)");
    Positional(limit, "NUMBER", m_Words.m_Second);
    CLI::App& path = Add("path", "Write new log files to a folder", FinishPath);
    Positional(path, "DIR", m_Words.m_First);
    CLI::App& focus = Add("focus", "Show a module's records in cyan", FinishText(eAction::kFocus));
    Positional(focus, "MODULE|off", m_Words.m_First);
  }

  void AddTerminals() {
    CLI::App& tty = Add("tty", "Send the terminal output to a device", FinishText(eAction::kTty));
    Positional(tty, "PATH", m_Words.m_First);
    Add("console",
        "Send the terminal output back: to the process's first terminal,\n"
        "else to /dev/console",
        FinishPlain(eAction::kConsole));
    CLI::App& attach = Add("attach",
                           "Receive the terminal output here until Ctrl-C; then it goes\n"
                           "where 'console' sends it",
                           FinishPlain(eAction::kAttach));
    AddFor(attach, "End by itself after that time");
  }

  void AddOthers() {
    CLI::App& set =
        Add("set", "Pass a number to a registered parameter", FinishName(eAction::kSet));
    Positional(set, "MODULE", m_Words.m_First);
    Positional(set, "TITLE", m_Words.m_Second);
    Positional(set, "NUMBER", m_Words.m_Third);
    CLI::App& save = Add("save", "Save settings to the configuration file of the process",
                         FinishText(eAction::kSave));
    save.add_option("WHAT", m_Words.m_First, "all, global or a module [all]")->type_name("");
    Add("send", "Send TEXT..., its words as they stand, behind all options",
        [](tagOptions& options, const tagWords& words) { FinishSend(words.m_Text, options); });
    Add("ps", "The processes here that have libkelvik.so loaded and a console open",
        FinishPlain(eAction::kPs));
  }

  // What works on files alone, without a process.
  void AddFiles() {
    CLI::App* const logs =
        m_App.add_subcommand("logs", "Print the ring of log files, the oldest record first");
    m_Finish[logs] = FinishLogs;
    logs->add_option("--config", m_Options.m_Config,
                     "The configuration file that keeps the list of files")
        ->required()
        ->type_name("FILE");
    logs->add_flag("-f,--follow", m_Options.m_IsFollowing,
                   "Go on with what is written, until Ctrl-C");
    logs->add_option("-n,--lines", m_Words.m_Lines, "Only the last LINES of the lines [all]")
        ->type_name("LINES");
    logs->add_option("--module", m_Options.m_Module, "Only records of that module")
        ->type_name("NAME");
    logs->add_option("--grep", m_Options.m_Text, "Only lines that contain TEXT, as it stands")
        ->type_name("TEXT");
    CLI::App* const check =
        m_App.add_subcommand("check", "Tell what is wrong in a configuration file, line by line");
    m_Finish[check] = FinishPlain(eAction::kCheck);
    check->add_option("FILE", m_Options.m_Config)->required()->type_name("");
  }

  tagOptions& m_Options;
  tagWords m_Words;
  CLI::App m_App;
  std::map<const CLI::App*, Finish> m_Finish;
};

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, tagOptions& options) {
  CCommandLine line(options);
  try {
    line.Parse(argc, argv);
  } catch (const CLI::Success& wish) {
    line.Exit(wish);
    return std::fflush(stdout) == 0 ? kExitDone : kExitRefused;
  } catch (const CLI::ParseError& error) {
    throw CFailure(kExitUsage, line.Problem(error));
  }
  return std::nullopt;
}

}  // namespace KelvikCtl
