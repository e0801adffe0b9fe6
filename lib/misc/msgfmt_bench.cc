#include "messageBench.h"
#include "msgfmt.h"

namespace {

void Render(MsgList *message) {
  const std::unique_ptr<MsgList, Releaser<MsgList_Free>> owner(message);
  const OwnedString text(MsgFmt_Asprintf(nullptr, message->format, message->args, message->numArgs));
  benchmark::DoNotOptimize(text.get());
}

MESSAGE_BENCHMARKS(Message, MsgList_Create, Render);
// Positions are POSIX and no C++.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
MESSAGE_BENCHMARK(MessagePositional, MsgList_Create, Render,
                  "%4$ld bytes of \"%1$s\" from \"%2$s\": status %3$d.\n", messagebench::given.name,
                  messagebench::given.path, messagebench::given.status, messagebench::given.size);
#pragma GCC diagnostic pop

}  // namespace
