// What ends a run from outside: Ctrl-C, the end of the console, of the session or of the system.
#pragma once

#include <functional>
#include <list>
#include <mutex>

// From now on, an interruption tidies what is registered and then ends the process as the system
// ends it by itself.
void HandleInterruptions();

// From now on, interruptions wait for the process's own end: a change of the client's configuration
// begins.
void WaitOutInterruptions();

// Keeps interruptions off for a moment, in which something is made and registered.
class InterruptionPause {
  public:
    InterruptionPause();

  private:
    std::unique_lock<std::recursive_mutex> lock_;
};

// Calls `tidy`, on another thread, when an interruption ends the process while this lives: again
// and again for about a second while it returns false. From then on the destructor does not return.
class TidyOnInterruption {
  public:
    explicit TidyOnInterruption(std::function<bool()> tidy);
    TidyOnInterruption(const TidyOnInterruption&) = delete;
    TidyOnInterruption& operator=(const TidyOnInterruption&) = delete;
    ~TidyOnInterruption();

  private:
    std::list<std::function<bool()>>::iterator place_;
};
