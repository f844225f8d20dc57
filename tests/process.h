// A process under test: what it writes, and how it ends.
#ifndef KESD_TESTS_PROCESS_H_
#define KESD_TESTS_PROCESS_H_

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/fenksocket/unique_fd.h"

namespace testing_process {

enum class Output {
  kSeparate,    // standard output and standard error, a pipe each
  kMerged,      // one pipe for both, read as `out`
  kTerminal,    // a terminal for both and for standard input, which controls the process; read as `out`
  kFull,        // standard output takes nothing, as on a full disk
  kClosedPipe,  // nobody reads standard output
};

struct Outcome {
  int exitCode = -1;  // 1000 and the signal when a signal ended it; -1 when it did not end in time and was killed
  std::string out;    // what was not read before
  std::string err;
};

// The command with the emulator before each program of the build, where that is another processor's: before the one
// that is started and the one behind "--" that it starts. A Process does that itself; this is for what a shell starts.
std::vector<std::string> Emulated(const std::vector<std::string>& arguments);

// Its standard input is a pipe that this object holds, unless it is a terminal. The destructor kills what still runs.
class Process {
 public:
  // `environment`: "NAME=value" settings on top of this process's own. A name without "=" is taken out of it.
  Process(const std::vector<std::string>& arguments, Output output = Output::kSeparate,
          const std::vector<std::string>& environment = {});
  Process(Process&& other) noexcept;
  ~Process();

  void EndInput() { input.Reset(-1); }
  void Signal(int signal) const;
  bool IsRunning() const;
  // True once a signal has stopped it.
  bool AwaitStop() const;
  pid_t Pid() const { return pid; }

  // Of a terminal.
  void Type(const std::string& keys) const;
  void Resize(unsigned short rows, unsigned short columns) const;

  // The next line of `out`, without its end; empty when it ends before, or nothing comes for a minute.
  std::string ReadLine();
  // What there is of `out` up to the end of the first `part`, or all that came before it ended or a minute passed.
  std::string ReadUntil(const std::string& part);
  // The next lines of `out`, up to and including the first that contains `part`, or an empty one where none does.
  std::vector<std::string> ReadLinesUntil(const std::string& part);

  // True once its terminal takes no more, as nothing is read.
  bool AwaitFullTerminal() const;
  // True once it has no `out` any more, of which nothing is read.
  bool AwaitHangUp() const;

  // Ends its input and reads its output until it ends.
  Outcome Finish();

 private:
  pid_t pid = -1;  // until it was waited for
  fenk::UniqueFd input;
  fenk::UniqueFd out;
  fenk::UniqueFd err;
  // Where `part` begins in `unread`, once it is there; npos when `out` ends before, or nothing comes for a minute.
  std::string::size_type Await(const std::string& part);

  std::string unread;  // of `out`
};

// Goes in the end, with what is in it.
struct TemporaryDirectory {
  TemporaryDirectory();
  ~TemporaryDirectory();
  std::filesystem::path path;
};

// Without their ends.
std::vector<std::string> LinesOf(const std::string& text);

// Runs a program to its end.
Outcome Run(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {});

}  // namespace testing_process

#endif  // KESD_TESTS_PROCESS_H_
