#include <fcntl.h>
#include <poll.h>

#include "log.h"
#include "pollDefaultInt.h"

namespace {

uint16_t *DevicePlace(unsigned eventClass, int fd) {
  return &pollDefault.state->places[eventClass][static_cast<unsigned>(fd) % kPollPlaces];
}

void RememberPlace(unsigned eventClass, int fd, int place) {
  *DevicePlace(eventClass, fd) = static_cast<uint16_t>(place);
}

PollDevice *AppendDevice(unsigned eventClass, int fd) {
  PollClass *table = &pollDefault.state->classes[eventClass];
  if (table->count == kPollMaxDevices) {
    Warning("POLL: reached limit of %d events in class %d\n", table->count, static_cast<int>(eventClass));
  }
  ASSERT(table->count < kPollMaxDevices);
  RememberPlace(eventClass, fd, table->count);
  PollDevice *device = &table->devices[table->count++];
  *device = {nullptr, nullptr, fd, 0};
  return device;
}

// The half of a descriptor that a record is for, and its event.
PollCallback **DeviceHalf(PollDevice *device, const PollCallback *record) {
  return (record->flags & POLL_FLAG_WRITE) != 0 ? &device->write : &device->read;
}

int DeviceEvent(const PollCallback *record) {
  return (record->flags & POLL_FLAG_WRITE) != 0 ? POLLOUT : POLLIN;
}

void AddToClass(PollCallback *record, unsigned eventClass) {
  PollDevice *device = PollDefaultFindDevice(eventClass, record->info);
  if (device == nullptr) {
    device = AppendDevice(eventClass, record->info);
  }
  PollCallback **half = DeviceHalf(device, record);
  ASSERT(*half == nullptr);
  *half = record;
  device->events |= DeviceEvent(record);
}

void RemoveFromClass(const PollCallback *record, unsigned eventClass) {
  PollDevice *device = PollDefaultFindDevice(eventClass, record->info);
  ASSERT(device != nullptr);
  PollCallback **half = DeviceHalf(device, record);
  ASSERT(*half == record);
  ASSERT(device->events != 0);
  *half = nullptr;
  device->events &= ~DeviceEvent(record);
  if (device->events != 0) {
    return;
  }
  PollClass *table = &pollDefault.state->classes[eventClass];
  *device = table->devices[--table->count];
  RememberPlace(eventClass, device->fd, static_cast<int>(device - table->devices));
}

// A record stands in a class's table for just what it asks for, and in no other's.
void CheckRecord(const PollCallback *record) {
  ASSERT(record->count > 0);
  ASSERT(record->onQueue);
  for (unsigned eventClass = 0; eventClass < kPollClasses; eventClass++) {
    const PollDevice *device = PollDefaultFindDevice(eventClass, record->info);
    const bool isMember = PollClassSet_IsMember(record->classSet, eventClass);
    const bool reads = isMember && (record->flags & POLL_FLAG_READ) != 0;
    const bool writes = isMember && (record->flags & POLL_FLAG_WRITE) != 0;
    ASSERT(reads == (device != nullptr && device->read == record));
    ASSERT(writes == (device != nullptr && device->write == record));
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
  PollClass *table = &pollDefault.state->classes[eventClass];
  const int place = *DevicePlace(eventClass, fd);
  if (place < table->count && table->devices[place].fd == fd) {
    return &table->devices[place];
  }
  for (int i = 0; i < table->count; i++) {
    if (table->devices[i].fd == fd) {
      RememberPlace(eventClass, fd, i);
      return &table->devices[i];
    }
  }
  return nullptr;
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
