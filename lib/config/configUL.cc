// What would find or change a setting whatever its type.
#include "config.h"
#include "panicUser.h"

void *Config_Get(const void * /*defaultValue*/, uint32_t /*typeAndFlags*/, const char * /*name*/) {
  NOT_REACHED();
}

void Config_Set(const void * /*value*/, uint32_t /*typeAndFlags*/, const char * /*name*/) {
  NOT_REACHED();
}

void Config_SetFromString(const char * /*text*/, bool /*overwrite*/) {
  NOT_IMPLEMENTED();
}

void Config_Unset(const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}

void Config_UnsetPrefix(const char * /*prefix*/) {
  NOT_IMPLEMENTED();
}

bool Config_Write() {
  NOT_IMPLEMENTED();
}
