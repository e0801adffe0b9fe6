#include "ostpoll.h"
#include "pollImpl.h"

namespace {

constexpr int kRunMicro = 1000000;

// What Poll is made of: nothing until Poll_Install, and again from Poll_Exit on.
const PollImpl *pollImpl;

const PollImpl *PollInstalled() {
  ASSERT(pollImpl != nullptr);
  return pollImpl;
}

// A device for which nothing is told is one that reads.
unsigned PollFlags(unsigned flags, int type) {
  const bool isUntold = type == POLL_TYPE_DEVICE && (flags & (POLL_FLAG_READ | POLL_FLAG_WRITE)) == 0;
  return isUntold ? flags | POLL_FLAG_READ : flags;
}

unsigned PollStandardFlags(bool periodic) {
  return periodic ? POLL_FLAG_STANDARD | POLL_FLAG_PERIODIC : POLL_FLAG_STANDARD;
}

}  // namespace

void Poll_Install(const PollImpl *impl) {
  ASSERT(pollImpl == nullptr);
  pollImpl = impl;
  pollImpl->init();
}

void Poll_Exit() {
  PollInstalled()->exit();
  pollImpl = nullptr;
}

void Poll_RunTimed(bool loop, const volatile bool *exit, unsigned eventClass, int timeoutMicro) {
  PollInstalled()->loop(loop, exit, eventClass, timeoutMicro);
}

void Poll_Run(bool loop, const volatile bool *exit, unsigned eventClass) {
  Poll_RunTimed(loop, exit, eventClass, kRunMicro);
}

void Poll_AddCallback(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type,
                      int info, void *lock) {
  ASSERT(func != nullptr);
  ASSERT(lock == nullptr);
  PollInstalled()->add(classSet, PollFlags(flags, type), func, clientData, type, info, lock);
}

bool Poll_RemoveCallback(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type) {
  ASSERT(func != nullptr);
  return PollInstalled()->remove(classSet, PollFlags(flags, type), func, clientData, type);
}

bool Poll_RemoveOneByFunction(PollClassSet classSet, unsigned flags, PollFn func, int type,
                              void **clientData) {
  ASSERT(func != nullptr);
  ASSERT(clientData != nullptr);
  return PollInstalled()->removeOne(classSet, PollFlags(flags, type), func, type, clientData);
}

void Poll_AddTimer(PollFn func, void *clientData, int delayMicro, bool periodic, void *lock) {
  Poll_AddCallback(PollClassSet_Singleton(POLL_CLASS_MAIN), PollStandardFlags(periodic), func, clientData,
                   POLL_TYPE_TIMER, delayMicro, lock);
}

bool Poll_RemoveTimer(PollFn func, void *clientData, bool periodic) {
  return Poll_RemoveCallback(PollClassSet_Singleton(POLL_CLASS_MAIN), PollStandardFlags(periodic), func,
                             clientData, POLL_TYPE_TIMER);
}

void Poll_AddDevice(PollFn func, void *clientData, int fd, bool periodic) {
  Poll_AddCallback(PollClassSet_Singleton(POLL_CLASS_MAIN), PollStandardFlags(periodic) | POLL_FLAG_READ,
                   func, clientData, POLL_TYPE_DEVICE, fd, nullptr);
}

bool Poll_RemoveDevice(PollFn func, void *clientData, bool periodic) {
  return Poll_RemoveCallback(PollClassSet_Singleton(POLL_CLASS_MAIN), PollStandardFlags(periodic), func,
                             clientData, POLL_TYPE_DEVICE);
}
