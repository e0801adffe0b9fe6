// Never compiles, and is not meant to: it shows what becomes of an optional module that this kernel can't have.
#include "demo.h"

#error "ostbloc has not been ported to this kernel"
