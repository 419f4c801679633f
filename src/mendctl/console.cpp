#include "mendctl/console.h"

#include "mendctl/call_log.h"
#include "mendctl/commands.h"
#include "mendctl/new_file.h"

#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>
#include <new>

namespace {

constexpr char Statuses[] =
    "Exit status: 0 fine, 1 found something (a change to undo, a fault, a difference, a step that fails), 2 wrong "
    "use,\n"
    "3 something cannot be read or written.";

/// The command line, as it was parsed.
struct TOptions {
  std::string Base, Colour = "auto";
  std::vector<std::string> Drives;
  unsigned CodePage = 0;
  bool Json = false;
  int Bits = 0;

  bool All = false, OnlyToCheckPoint = false, Silent = false, Yes = false, DryRun = false, Contents = false;
  size_t Number = 0, Skip = 0;
  std::string Folder, File, DebugLog, Page;
  uint64_t LimitMegabytes = 8;
  TCallLogOptions Calls;
};

TMachine MachineOf(const TOptions& Options) {
  TMachine Machine;
  Machine.CodePage = Options.CodePage;
  for (const std::string& Drive : Options.Drives) {
    const bool Fits = Drive.size() > 2 && std::isalpha(static_cast<unsigned char>(Drive[0])) && Drive[1] == '=';
    if (!Fits) throw EWrongUse{"--drive takes a letter and a folder, as in C=/tmp/customer/c; not " + Drive + "."};
    Machine.Drives[static_cast<char>(Drive[0] | 0x20)] = PathFrom(Drive.substr(2));
  }
  return Machine;
}

TContext ContextOf(const TOptions& Options, bool Colour) {
  std::filesystem::path Base = PathFrom(Options.Base);
  if (Options.Base.empty()) {
    std::string Why;
    const auto Registered = TMachine::RegisteredBase(Why);
    if (!Registered) throw EWrongUse{Why};
    Base = *Registered;
  }
  return {MachineOf(Options), TStateFolder(Base, Options.Bits), TPaint(Colour)};
}

/// The debug log alone needs no base folder.
TReport CallLog(const TOptions& Options, bool Colour) {
  const std::filesystem::path Path =
      Options.DebugLog.empty() ? ContextOf(Options, Colour).State.DebugLog : PathFrom(Options.DebugLog);
  const std::string Content = TReadableFile(Path).Text();
  const TMachine Machine = MachineOf(Options);
  TCallLogOptions How = Options.Calls;
  How.ToUtf8 = [&](std::string_view Text) { return Machine.ToUtf8(Text); };
  const TCallLog Log = ReadCallLog(Content);
  TReport Report;
  Report.Status = Log.Failures.empty() ? Fine : FoundSomething;
  if (!Options.Page.empty()) {
    WriteNewFile(PathFrom(Options.Page), CallLogPage(Log, How, NameOf(Path)));
    Report.Data = {{"written", Options.Page}};
    Report.Text = Options.Page + " is written; open it in a browser.\n";
  } else if (Options.Json) {
    Report.Data = CallLogJson(Log, How);
  } else {
    Report.Text = CallLogText(Log, How, Colour);
  }
  return Report;
}

class TConsole {
 public:
  TConsole(std::istream& In, std::ostream& Out, std::ostream& Err) : In(In), Out(Out), Err(Err) {
    App.require_subcommand(1);
    App.fallthrough();
    App.footer(Statuses);
    App.set_version_flag("--version", "mendctl 6.0");
    App.add_option("--base", Options.Base,
                   "the application's base folder; without it, the one that the registry names");
    App.add_option("--code-page", Options.CodePage, "of the machine that the state comes from (1252, 932, 65001 ...)");
    App.add_option("--drive", Options.Drives, "where a drive of that machine lies here: C=FOLDER; may be repeated");
    App.add_option("--bits", Options.Bits, "32 or 64: whose state; without it, of the library that there is")
        ->check(CLI::IsMember({32, 64}));
    App.add_flag("--json", Options.Json, "for programs: JSON instead of text");
    App.add_option("--color", Options.Colour, "auto (the default), always, never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    AddCommands();
  }

  int Run(const std::vector<std::string>& Words) {
    try {
      App.parse(std::vector<std::string>(Words.rbegin(), Words.rend()));
      Colour = Options.Colour == "always" ||
               (Options.Colour == "auto" && &Out == &std::cout && TMachine::OutputIsTerminal());
      const TReport Report = Chosen();
      Out << (Options.Json ? Report.Data.dump(2, ' ', false, TJson::error_handler_t::replace) + "\n" : Report.Text);
      Out.flush();
      return Report.Status;
    } catch (const CLI::ParseError& Failure) {
      return App.exit(Failure, Out, Err) == 0 ? Fine : WrongUse;
    } catch (const EWrongUse& Failure) {
      Err << "mendctl: " << Failure.Why << "\n";
      return WrongUse;
    } catch (const ECannotRead& Failure) {
      Err << "mendctl: " << Failure.File << (Failure.Offset ? " at offset " + std::to_string(Failure.Offset) : "")
          << ": " << Failure.Why << "\n";
    } catch (const std::bad_alloc&) {
      Err << "mendctl: there is not enough memory for a file of this size\n";
    } catch (const std::exception& Failure) {
      Err << "mendctl: " << Failure.what() << "\n";
    }
    return CannotRead;
  }

 private:
  CLI::App* Add(const char* Name, const char* Text, std::function<TReport()> Command) {
    CLI::App* const Sub = App.add_subcommand(Name, Text);
    Sub->callback([this, Command = std::move(Command)] { Chosen = Command; });
    return Sub;
  }

  void AddCommands() {
    Add("status", "idle, in progress or interrupted; what the logs and the store are like",
        [this] { return Status(Context()); });

    CLI::App* Sub = Add("show", "the changes that can be undone, newest first", [this] {
      return Options.Number ? ShowOne(Context(), Options.Number) : Show(Context(), Options.All);
    });
    Sub->add_flag("--all", Options.All, "not only down to the newest check point");
    Sub->add_option("N", Options.Number, "one entry, with all that was saved and what is there now")
        ->check(CLI::PositiveNumber);

    Sub = Add("plan", "what a rollback would do now, and which steps would fail",
              [this] { return Plan(Context(), Options.OnlyToCheckPoint); });
    Sub->add_flag("--to-check-point", Options.OnlyToCheckPoint, "of one that ends at the newest check point");

    Add("verify", "every file against every rule, and what a fault does to a rollback",
        [this] { return Verify(Context()); });

    Sub = Add("extract", "writes what an entry saved as files, and as a .reg file",
              [this] { return Extract(Context(), Options.Number, PathFrom(Options.Folder)); });
    Sub->add_option("N", Options.Number, "the entry")->required();
    Sub->add_option("DIR", Options.Folder, "the folder to write to")->required();

    Sub = Add("diff", "how what an entry saved differs from what is there now",
              [this] { return Diff(Context(), Options.Number); });
    Sub->add_option("N", Options.Number, "the entry")->required();

    Sub = Add("rollback", "undoes the update with the library, to the newest check point", [this] {
      TRollbackOptions How{Options.All, Options.Silent, {}};
      if (Options.Skip) How.Skip = Options.Skip;
      // On a terminal one line that changes.
      TReport Report = Rollback(Context(), How, [this](const std::string& Line) {
        Err << (Colour ? "\r" : "") << Line << (Colour ? "" : "\n") << std::flush;
      });
      if (Colour) Err << "\n";
      return Report;
    });
    Sub->add_flag("--all", Options.All, "to the beginning of the log");
    Sub->add_flag("--silent", Options.Silent, "without boxes: what fails ends the rollback");
    Sub->add_option("--skip", Options.Skip, "leaves one entry out; it is kept in a file beside the log")
        ->check(CLI::PositiveNumber);

    Sub = Add("apply", "applies an update manifest with the kit, all of it or nothing",
              [this] { return Apply(PathFrom(Options.File)); });
    Sub->add_option("MANIFEST", Options.File, "the JSON file that says what the update does")->required();

    Sub = Add("commit", "ends an update: what it changed cannot be undone any more", [this] {
      return Commit(Context(), [this](const std::string& Question) { return Options.Yes || Ask(Question); });
    });
    Sub->add_flag("--yes", Options.Yes, "asks nothing");

    Sub = Add("prune", "removes the items that neither log nor history refer to",
              [this] { return Prune(Context(), Options.DryRun); });
    Sub->add_flag("--dry-run", Options.DryRun, "only tells how many");

    Sub = Add("log", "the debug log as a tree of calls, failures first", [this] { return CallLog(Options, Colour); });
    Sub->add_flag("--errors", Options.Calls.Errors, "only calls that failed");
    Sub->add_flag("--calls", Options.Calls.Calls, "one line for each outermost call");
    Sub->add_option("--call", Options.Calls.Call, "one call, by its id, with all in it");
    Sub->add_option("--process", Options.Calls.Process, "of one process, by its number in the log");
    Sub->add_option("--html", Options.Page, "writes one page that a browser shows without a network");
    Sub->add_option("--file", Options.DebugLog, "another file than the base folder's update.log");

    Add("uninstall-log", "the installer's log, and what updates added to it",
        [this] { return UninstallLog(Context()); });

    Sub = Add("collect", "puts everything that support needs into a new ZIP file", [this] {
      return Collect(Context(), PathFrom(Options.File), Options.Contents, Options.LimitMegabytes << 20);
    });
    Sub->add_option("FILE", Options.File, "the file to make")->required();
    Sub->add_flag("--contents", Options.Contents, "with the contents of the application's files");
    Sub->add_option("--limit", Options.LimitMegabytes, "how many MB of the debug log, from its end (8)")
        ->check(CLI::Range(1, 1024));
  }

  TContext Context() const { return ContextOf(Options, Colour); }

  bool Ask(const std::string& Question) {
    Err << Question << " [y/N] " << std::flush;
    std::string Answer;
    std::getline(In, Answer);
    return Answer.starts_with('y') || Answer.starts_with('Y');
  }

  CLI::App App{"Tells what an update did and what a rollback would do, and does it.", "mendctl"};
  TOptions Options;
  bool Colour = false;
  std::function<TReport()> Chosen;
  std::istream& In;
  std::ostream& Out;
  std::ostream& Err;
};

}  // namespace

int RunConsole(const std::vector<std::string>& Words, std::istream& In, std::ostream& Out, std::ostream& Err) {
  return TConsole(In, Out, Err).Run(Words);
}
