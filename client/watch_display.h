// Where kesctl watch shows what it heard: on a terminal that it draws on, or line after line.
#ifndef KESD_CLIENT_WATCH_DISPLAY_H_
#define KESD_CLIENT_WATCH_DISPLAY_H_

#include <chrono>
#include <string>

#include "client/discovery_result.h"
#include "client/interrupts.h"
#include "client/signal_history.h"
#include "client/terminal.h"
#include "client/watch_screen.h"

namespace kesctl {

class WatchDisplay {
 public:
  WatchDisplay() = default;
  virtual ~WatchDisplay() = default;
  WatchDisplay(const WatchDisplay&) = delete;
  WatchDisplay& operator=(const WatchDisplay&) = delete;

  // `result`: null when there is none. `trouble`: why, or why it is a bad one; else empty. False when it could not be
  // written, which was said.
  virtual bool Show(const kes::DiscoveryResult* result, const std::string& trouble) = 0;

  // Where the user can type; -1 when nowhere.
  virtual int KeyDescriptor() const { return -1; }

  // Does what keys and signals ask for. False when the user quits.
  virtual bool Serve(Interrupts&) { return true; }

  // Leaves behind what the user should keep.
  virtual void End() {}
};

// A JSON object a line, or a table after the other; troubles on standard error, each once as long as it lasts.
class LineDisplay : public WatchDisplay {
 public:
  explicit LineDisplay(bool asJson) : json(asJson) {}
  bool Show(const kes::DiscoveryResult* result, const std::string& trouble) override;

 private:
  const bool json;
  std::string said;
};

// A table that stays where it is and changes. Leaves the last one behind on the screen as it was found.
class LiveDisplay : public WatchDisplay {
 public:
  explicit LiveDisplay(std::chrono::milliseconds interval);
  bool Show(const kes::DiscoveryResult* result, const std::string& trouble) override;
  int KeyDescriptor() const override { return terminal.KeyDescriptor(); }
  bool Serve(Interrupts& interrupts) override;
  void End() override;

 private:
  std::vector<std::string> Lines() const;
  bool Draw();
  bool ServeKeys() const;

  const WatchStyle style;
  SignalHistory history;
  WatchState state;
  Terminal terminal;
  bool isShown = false;  // all of the latest drawing
};

}  // namespace kesctl

#endif  // KESD_CLIENT_WATCH_DISPLAY_H_
