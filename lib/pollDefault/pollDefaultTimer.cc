#include <bit>
#include <cstdint>

#include "pollDefaultInt.h"

namespace {

// How many lanes a new timer stands in: one in four stands in one, one in sixteen in two.
int DrawLanes() {
  uint32_t &draw = pollDefault.state->laneDraw;
  draw = draw * 1664525 + 1013904223;
  return std::countl_zero(draw | (uint32_t{1} << (31 - 2 * kPollTimerLanes))) / 2;
}

void LinkInLane(PollCallback *record, int lane, PollCallback **link) {
  record->lane[lane] = {*link, link};
  if (*link != nullptr) {
    (*link)->lane[lane].link = &record->lane[lane].next;
  }
  *link = record;
}

void UnlinkFromLane(const PollCallback *record, int lane) {
  const auto [next, link] = record->lane[lane];
  *link = next;
  if (next != nullptr) {
    next->lane[lane].link = link;
  }
}

}  // namespace

void PollDefaultLinkTimer(PollCallback *record) {
  PollState *state = pollDefault.state;
  const int64_t time = record->time;
  record->lanes = DrawLanes();
  PollCallback *before = nullptr;
  for (int lane = kPollTimerLanes - 1; lane >= 0; lane--) {
    PollCallback **link = before != nullptr ? &before->lane[lane].next : &state->lanes[lane];
    while (*link != nullptr && (*link)->time < time) {
      before = *link;
      link = &before->lane[lane].next;
    }
    if (lane < record->lanes) {
      LinkInLane(record, lane, link);
    }
  }
  PollCallback **link = before != nullptr ? &before->next : &state->queues[POLL_TYPE_TIMER];
  while (*link != nullptr && (*link)->time < time) {
    link = &(*link)->next;
  }
  PollDefaultLink(record, link);
}

void PollDefaultUnlinkTimer(PollCallback *record) {
  for (int lane = 0; lane < record->lanes; lane++) {
    UnlinkFromLane(record, lane);
  }
  PollDefaultUnlink(record);
}
