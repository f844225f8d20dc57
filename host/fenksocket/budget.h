// What may be had of something in all.
#ifndef KESD_HOST_FENKSOCKET_BUDGET_H_
#define KESD_HOST_FENKSOCKET_BUDGET_H_

#include <atomic>
#include <cstdint>

namespace fenk {

// Any thread may call any method.
class Budget {
 public:
  explicit Budget(uint64_t most) : max(most) {}

  // Nothing is taken when there is not as much left. `amount` is far below 2^63.
  [[nodiscard]] bool Take(uint64_t amount) {
    if (taken.fetch_add(amount) + amount <= max) return true;
    Give(amount);
    return false;
  }
  void Give(uint64_t amount) { taken.fetch_sub(amount); }

 private:
  const uint64_t max;
  std::atomic<uint64_t> taken = 0;
};

// Some of a budget, given back at the end.
class BudgetShare {
 public:
  BudgetShare(Budget& from, uint64_t someAmount) : budget(from), amount(from.Take(someAmount) ? someAmount : 0) {}
  BudgetShare(const BudgetShare&) = delete;
  ~BudgetShare() { budget.Give(amount); }
  bool IsTaken() const { return amount != 0; }

 private:
  Budget& budget;
  const uint64_t amount;
};

// What the connections of one user may have together, so that no user can take what others need. A connection's own
// limits apply as well.
struct UserLimits {
  uint64_t connections;
  uint64_t exportedObjects;  // references to this end's objects that the user's peers hold
  uint64_t importedObjects;  // references to objects of the user's peers
  uint64_t calls;            // invocations of the user's peers that wait for their answers
  uint64_t frameBytes;       // memory for frames that are longer than a few kilobytes
};

struct UserBudget {
  explicit UserBudget(const UserLimits& limits)
      : connections(limits.connections),
        exportedObjects(limits.exportedObjects),
        importedObjects(limits.importedObjects),
        calls(limits.calls),
        frameBytes(limits.frameBytes) {}

  Budget connections, exportedObjects, importedObjects, calls, frameBytes;
};

}  // namespace fenk

#endif  // KESD_HOST_FENKSOCKET_BUDGET_H_
