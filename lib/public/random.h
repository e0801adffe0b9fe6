// Random numbers: a quick generator with a repeatable sequence, a single cheap step for spreading waits, and
// bytes that nobody can foretell.
#ifndef OST_PUBLIC_RANDOM_H
#define OST_PUBLIC_RANDOM_H

#include <cstddef>
#include <cstdint>

struct RandomQuickState;

// A new TT800 generator (free), or null when memory is out. A seed always gives the same sequence.
RandomQuickState *Random_QuickSeed(uint32_t seed);
// The generator's next word.
uint32_t Random_Quick(RandomQuickState *state);
// The number behind `x` in the minimal standard sequence, 16807 x modulo 2^31 - 1, which runs through all of
// 1 to 2^31 - 2 before it repeats. 0 gives 1.
uint32_t Random_MinimalStandard(uint32_t x);
// Fills `buffer` with `size` bytes from the system's random device. Returns false, with the reason in the
// log, when it can't.
bool Random_Crypto(size_t size, void *buffer);

#endif
