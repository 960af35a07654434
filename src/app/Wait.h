#pragma once
#include <functional>

namespace nd {

// Yields to the event loop until pred() holds. Between events the thread sleeps in the event
// loop (no spinning); a 200 ms heartbeat re-tests the predicate in case nothing else wakes it.
void waitUntil(const std::function<bool()> &pred);

// Processes the events that are waiting now and returns (the classic "yield once").
void yieldOnce();

// How many waits are running (nested waits count each). The main window refuses to close
// while a wait runs and closes once it has ended.
int waitDepth();

// Called when the outermost wait ends; the main window uses it to finish a deferred close.
void setWaitEndedHook(std::function<void()> hook);

} // namespace nd
