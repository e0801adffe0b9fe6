// Local owners for what C interfaces hand out.
//
//   const OwnedString path(KernPrep_FindCompiler());
//   const OwnedStream stream(Posix_Popen(command, "r"));
#ifndef OST_PUBLIC_OWNED_H
#define OST_PUBLIC_OWNED_H

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

template <auto release>
struct Releaser {
  template <typename T>
  void operator()(T *pointer) const {
    release(pointer);
  }
};

// A string, or any other block, from malloc.
using OwnedString = std::unique_ptr<char, Releaser<free>>;
using OwnedStream = std::unique_ptr<FILE, Releaser<fclose>>;
using OwnedDirectory = std::unique_ptr<DIR, Releaser<closedir>>;

#endif
