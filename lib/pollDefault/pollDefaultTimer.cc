#include <bit>
#include <cstdint>

#include "pollDefaultInt.h"

namespace {

constexpr uint64_t kSpread = 0x9E3779B97F4A7C15;
constexpr int kBucketBits = std::countr_zero(kPollTimerBuckets);

PollCallback **TimerBucket(PollFn func, const void *clientData) {
  const uint64_t key = reinterpret_cast<uintptr_t>(func) * 31 + reinterpret_cast<uintptr_t>(clientData);
  return &pollDefault.state->timers[key * kSpread >> (64 - kBucketBits)];
}

// How many lanes a new timer stands in: one in four stands in one, one in sixteen in two.
int DrawLanes() {
  uint32_t &draw = pollDefault.state->timerDraw;
  draw = draw * 1664525 + 1013904223;
  return std::countl_zero(draw | (uint32_t{1} << (31 - 2 * kPollTimerLanes))) / 2;
}

// What leads to the place of a record in its queue, and in each lane to the record itself or to the first
// behind its place.
PollCallback **FindPlace(const PollCallback *record, PollCallback **(&links)[kPollTimerLanes]) {
  PollState *state = pollDefault.state;
  PollCallback *before = nullptr;
  for (int lane = kPollTimerLanes - 1; lane >= 0; lane--) {
    PollCallback **link = before != nullptr ? &before->lane[lane] : &state->lanes[lane];
    while (*link != nullptr && PollDefaultIsSooner(*link, record)) {
      before = *link;
      link = &before->lane[lane];
    }
    links[lane] = link;
  }
  PollCallback **link = before != nullptr ? &before->next : &state->queues[POLL_TYPE_TIMER];
  while (*link != nullptr && PollDefaultIsSooner(*link, record)) {
    link = &(*link)->next;
  }
  return link;
}

void LinkAlike(PollCallback *record) {
  PollCallback **link = TimerBucket(record->func, record->clientData);
  record->alike = *link;
  record->alikeLink = link;
  if (*link != nullptr) {
    (*link)->alikeLink = &record->alike;
  }
  *link = record;
}

void UnlinkAlike(PollCallback *record) {
  *record->alikeLink = record->alike;
  if (record->alike != nullptr) {
    record->alike->alikeLink = record->alikeLink;
  }
}

}  // namespace

bool PollDefaultIsSooner(const PollCallback *one, const PollCallback *other) {
  return one->time != other->time ? one->time < other->time : one->order > other->order;
}

void PollDefaultLinkTimer(PollCallback *record) {
  record->order = ++pollDefault.state->timerOrder;
  record->lanes = DrawLanes();
  PollCallback **links[kPollTimerLanes];
  PollDefaultLink(record, FindPlace(record, links));
  for (int lane = 0; lane < record->lanes; lane++) {
    record->lane[lane] = *links[lane];
    *links[lane] = record;
  }
  LinkAlike(record);
}

void PollDefaultUnlinkTimer(PollCallback *record) {
  if (record->lanes != 0) {
    PollCallback **links[kPollTimerLanes];
    FindPlace(record, links);
    for (int lane = 0; lane < record->lanes; lane++) {
      *links[lane] = record->lane[lane];
    }
  }
  PollDefaultUnlink(record);
  UnlinkAlike(record);
}

PollCallback *PollDefaultFirstAlike(PollFn func, const void *clientData) {
  return *TimerBucket(func, clientData);
}
