// The event loop: timers, file descriptors and callbacks of each turn.
//
//   Poll_InitDefault();
//   Poll_AddTimer(Reload, state, 5000000, false, nullptr);  // once, in five seconds
//   Poll_AddDevice(Read, state, fd, true);                  // whenever the descriptor is readable
//   bool quit = false;
//   Poll_Run(true, &quit, POLL_CLASS_MAIN);                 // until a callback sets quit
//   Poll_Exit();
//
// A callback may call everything here: it may add others, remove others, remove itself, and run a loop inside
// the loop; only behind Poll_Exit it must not return to its loop. All calls but those that start Poll need a
// Poll that was started, and stop the program otherwise.
//
// Poll is for one thread unless it was started with a lock. Then any thread may add and remove, but one alone
// may run loops. A loop that waits sees another thread's timer or descriptor at its next turn. A callback
// that another thread removes may still be running when the removal returns.
#ifndef OST_PUBLIC_OSTPOLL_H
#define OST_PUBLIC_OSTPOLL_H

#include <cstdint>

using PollFn = void (*)(void *clientData);
// Invokes a callback: wrapper(func, clientData, wrapperData) stands in for func(clientData).
using PollWrapperFn = void (*)(PollFn func, void *clientData, void *wrapperData);

// Sets of classes: class c is bit c modulo 64 of word c divided by 64. Its operations are in pollImpl.h.
struct PollClassSet {
  uint64_t words[2];
};

// The class that every callback is a member of.
enum : unsigned { POLL_CLASS_MAIN = 0 };

// What makes a callback fire, and the meaning of its `info`.
enum : int {
  POLL_TYPE_TIMER = 1,      // a delay has passed; the delay in microseconds
  POLL_TYPE_DEVICE = 2,     // a file descriptor is ready; the descriptor
  POLL_TYPE_MAIN_LOOP = 3,  // each turn of the loop; 0
};

enum : unsigned {
  POLL_FLAG_PERIODIC = 1,  // stays registered after firing
  POLL_FLAG_STANDARD = 2,  // registered with Poll_AddTimer or Poll_AddDevice
  POLL_FLAG_READ = 4,      // a device that is readable
  POLL_FLAG_WRITE = 8,     // a device that is writable
};

struct PollOptions {
  bool locked;            // whether any thread may add and remove callbacks
  bool reserved;          // not used
  PollWrapperFn wrapper;  // or null
  void *wrapperData;
};

// Starts Poll with the options of the last Poll_InitOptions or Poll_InitLocked, if there was one; with no
// lock and no wrapper otherwise. A Poll that was started stops the program.
void Poll_InitDefault();
void Poll_InitOptions(const PollOptions &options);
// With a lock and no wrapper.
void Poll_InitLocked();
// Forgets all callbacks. No loop may go on: one that comes back to a Poll that has ended, from a callback or
// a wait, stops the program, even if Poll was started again.
void Poll_Exit();

// Waits for events of a class and fires their callbacks.
//
// loop          whether to go on until *exit is true; otherwise it returns after one turn
// exit          ends the loop when a callback sets it to true, or another thread atomically; may be null
// eventClass    whose callbacks to fire, 0 to 4
// timeoutMicro  the longest wait of a turn in microseconds, not negative
void Poll_RunTimed(bool loop, const volatile bool *exit, unsigned eventClass, int timeoutMicro);
// With waits of a second.
void Poll_Run(bool loop, const volatile bool *exit, unsigned eventClass);

// Registers a callback. A device's callback for which neither POLL_FLAG_READ nor POLL_FLAG_WRITE is told is
// one that reads; both at once are refused. A descriptor must be open, and has at most one callback that
// reads and one that writes in a class; a class has at most 512 descriptors and 512 callbacks of the main
// loop, and all descriptors together have at most 512 callbacks. What doesn't fit stops the program, at once
// or when the loop or its self-check meets it.
//
// classSet  the classes whose loops fire it: POLL_CLASS_MAIN among them, and nothing else for a timer
// info      as the type tells; a delay must not be negative
// lock      null
void Poll_AddCallback(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type,
                      int info, void *lock);
// Removes one callback that was registered with just these: of several timers the one that is due first,
// otherwise the one that was registered last. Returns whether there was one.
bool Poll_RemoveCallback(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type);
// The same, whatever its client data is.
//
// clientData  gets the removed callback's; left alone when there is none
bool Poll_RemoveOneByFunction(PollClassSet classSet, unsigned flags, PollFn func, int type,
                              void **clientData);

// The same for a timer of the main class. A periodic one may fire up to 2 milliseconds early, others
// never do.
//
// delayMicro  in microseconds, not negative; the period too when periodic, and then not 0
// lock        null
void Poll_AddTimer(PollFn func, void *clientData, int delayMicro, bool periodic, void *lock);
bool Poll_RemoveTimer(PollFn func, void *clientData, bool periodic);

// The same for a descriptor of the main class that is to be read.
void Poll_AddDevice(PollFn func, void *clientData, int fd, bool periodic);
bool Poll_RemoveDevice(PollFn func, void *clientData, bool periodic);

#endif
