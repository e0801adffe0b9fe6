// Random numbers: a quick generator with a repeatable sequence, and bytes that nobody can foretell.
#ifndef OST_PUBLIC_RANDOM_H
#define OST_PUBLIC_RANDOM_H

#include <cstddef>
#include <cstdint>

struct RandomQuickState;

// A new TT800 generator (free), or null when memory is out. A seed always gives the same sequence.
RandomQuickState *Random_QuickSeed(uint32_t seed);
// The generator's next word.
uint32_t Random_Quick(RandomQuickState *state);
// Fills `buffer` with `size` bytes from the system's random device. Returns false, with the reason in the
// log, when it can't.
bool Random_Crypto(size_t size, void *buffer);

#endif
