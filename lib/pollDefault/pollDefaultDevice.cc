#include <fcntl.h>
#include <poll.h>

#include "log.h"
#include "pollDefaultInt.h"

namespace {

// What leads to a descriptor's place, or the end of the chain where it would be.
uint16_t *FindPlace(unsigned eventClass, int fd) {
  const PollClass *table = &pollDefault.state->classes[eventClass];
  PollPlaces *places = &pollDefault.state->places[eventClass];
  uint16_t *place = &places->first[static_cast<unsigned>(fd) % kPollPlaces];
  while (*place != 0 && table->devices[*place - 1].fd != fd) {
    place = &places->next[*place - 1];
  }
  return place;
}

// Returns the new entry's place.
uint16_t AppendDevice(unsigned eventClass, int fd) {
  PollClass *table = &pollDefault.state->classes[eventClass];
  if (table->count == kPollMaxDevices) {
    Warning("POLL: reached limit of %d events in class %d\n", table->count, static_cast<int>(eventClass));
  }
  ASSERT(table->count < kPollMaxDevices);
  table->devices[table->count] = {nullptr, nullptr, fd, 0};
  pollDefault.state->places[eventClass].next[table->count] = 0;
  return static_cast<uint16_t>(++table->count);
}

// The half of a descriptor that a record is for, and its event.
PollCallback **DeviceHalf(PollDevice *device, const PollCallback *record) {
  return (record->flags & POLL_FLAG_WRITE) != 0 ? &device->write : &device->read;
}

int DeviceEvent(const PollCallback *record) {
  return (record->flags & POLL_FLAG_WRITE) != 0 ? POLLOUT : POLLIN;
}

void AddToClass(PollCallback *record, unsigned eventClass) {
  uint16_t *place = FindPlace(eventClass, record->info);
  if (*place == 0) {
    *place = AppendDevice(eventClass, record->info);
  }
  PollDevice *device = &pollDefault.state->classes[eventClass].devices[*place - 1];
  PollCallback **half = DeviceHalf(device, record);
  ASSERT(*half == nullptr);
  *half = record;
  device->events |= DeviceEvent(record);
}

// The table's last entry takes its place.
void RemoveEntry(unsigned eventClass, int fd) {
  PollClass *table = &pollDefault.state->classes[eventClass];
  uint16_t *next = pollDefault.state->places[eventClass].next;
  uint16_t *link = FindPlace(eventClass, fd);
  const uint16_t place = *link;
  *link = next[place - 1];
  const PollDevice last = table->devices[--table->count];
  if (last.fd != fd) {
    *FindPlace(eventClass, last.fd) = place;
    next[place - 1] = next[table->count];
    table->devices[place - 1] = last;
  }
}

void RemoveFromClass(const PollCallback *record, unsigned eventClass) {
  PollDevice *device = PollDefaultFindDevice(eventClass, record->info);
  ASSERT(device != nullptr);
  PollCallback **half = DeviceHalf(device, record);
  ASSERT(*half == record);
  ASSERT(device->events != 0);
  *half = nullptr;
  device->events &= ~DeviceEvent(record);
  if (device->events == 0) {
    RemoveEntry(eventClass, record->info);
  }
}

// A record stands in a class's table for just what it asks for, and in no other's.
void CheckRecord(const PollCallback *record) {
  ASSERT(record->count > 0);
  ASSERT(record->onQueue);
  const bool reads = (record->flags & POLL_FLAG_READ) != 0;
  const bool writes = (record->flags & POLL_FLAG_WRITE) != 0;
  for (unsigned eventClass = 0; eventClass < kPollClasses; eventClass++) {
    const bool isMember = PollClassSet_IsMember(record->classSet, eventClass);
    if (!isMember && pollDefault.state->classes[eventClass].count == 0) {
      continue;  // which most classes are
    }
    const PollDevice *device = PollDefaultFindDevice(eventClass, record->info);
    ASSERT((device != nullptr && device->read == record) == (isMember && reads));
    ASSERT((device != nullptr && device->write == record) == (isMember && writes));
  }
}

void CheckHalf(const PollCallback *record, unsigned flag, int fd) {
  if (record == nullptr) {
    return;
  }
  ASSERT(record->onQueue);
  ASSERT((record->flags & flag) != 0);
  ASSERT(record->info == fd);
}

}  // namespace

PollDevice *PollDefaultFindDevice(unsigned eventClass, int fd) {
  const uint16_t place = *FindPlace(eventClass, fd);
  return place != 0 ? &pollDefault.state->classes[eventClass].devices[place - 1] : nullptr;
}

void PollDefaultAddDevice(PollCallback *record) {
  ASSERT(PollDefaultIsLocked());
  ASSERT(fcntl(record->info, F_GETFD) != -1);
  for (unsigned eventClass = 0; eventClass < kPollClasses; eventClass++) {
    if (PollClassSet_IsMember(record->classSet, eventClass)) {
      AddToClass(record, eventClass);
    }
  }
  pollDefault.state->fdsChanged = true;
}

void PollDefaultRemoveDevice(PollCallback *record) {
  ASSERT(PollDefaultIsLocked());
  for (unsigned eventClass = 0; eventClass < kPollClasses; eventClass++) {
    if (PollClassSet_IsMember(record->classSet, eventClass)) {
      RemoveFromClass(record, eventClass);
    }
  }
  pollDefault.state->fdsChanged = true;
}

void PollDefaultCheck() {
  int count = 0;
  const PollState *state = pollDefault.state;
  for (const PollCallback *record = state->queues[POLL_TYPE_DEVICE]; record != nullptr;
       record = record->next) {
    ASSERT(count < kPollMaxDevices);
    count++;
    CheckRecord(record);
  }
  const PollClass *table = &state->classes[POLL_CLASS_MAIN];
  for (int i = 0; i < table->count; i++) {
    const PollDevice *device = &table->devices[i];
    CheckHalf(device->read, POLL_FLAG_READ, device->fd);
    CheckHalf(device->write, POLL_FLAG_WRITE, device->fd);
  }
}
