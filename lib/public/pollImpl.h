// What stands behind the event loop's facade: its table of operations, and the sets of classes.
#ifndef OST_PUBLIC_POLLIMPL_H
#define OST_PUBLIC_POLLIMPL_H

#include "ostpoll.h"
#include "panicUser.h"

// One implementation of Poll. The contracts are those of ostpoll.h; the flags of a device tell whether it is
// to be read or written.
struct PollImpl {
  void (*init)();
  void (*exit)();
  void (*loop)(bool loop, const volatile bool *exit, unsigned eventClass, int timeoutMicro);
  void (*add)(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type, int info,
              void *lock);
  bool (*remove)(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type);
  bool (*removeOne)(PollClassSet classSet, unsigned flags, PollFn func, int type, void **clientData);
};

// Makes Poll this implementation, which must live until Poll_Exit, and starts it. A Poll that was started
// stops the program.
void Poll_Install(const PollImpl *impl);

// A set's operations stop the program for a class above 127.

inline bool PollClassSet_IsMember(PollClassSet set, unsigned eventClass) {
  ASSERT(eventClass < 128);
  return (set.words[eventClass / 64] >> (eventClass % 64) & 1) != 0;
}

inline void PollClassSet_Include(PollClassSet *set, unsigned eventClass) {
  ASSERT(eventClass < 128);
  set->words[eventClass / 64] |= uint64_t{1} << (eventClass % 64);
}

// The set of one class.
inline PollClassSet PollClassSet_Singleton(unsigned eventClass) {
  PollClassSet set{};
  PollClassSet_Include(&set, eventClass);
  return set;
}

inline bool PollClassSet_Equal(PollClassSet a, PollClassSet b) {
  return a.words[0] == b.words[0] && a.words[1] == b.words[1];
}

#endif
