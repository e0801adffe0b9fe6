// Which product this is: its kind, name, version, build and capabilities. One record serves the process; it
// is empty until it is set, and what isn't set has the default that was compiled in.
//
//   ProductState_Deserialize("name=Ostrel Setup;version=2.1.0;");
//   Log("%s %s\n", ProductState_GetName(), ProductState_GetFullVersion());
//
// Texts that are got are borrowed, until the record is changed or, where it says so, until
// ProductState_Reset. The record isn't safe across threads.
#ifndef OST_PUBLIC_PRODUCTSTATE_H
#define OST_PUBLIC_PRODUCTSTATE_H

#include <cstdint>

// The items of the serialised form, as a mask.
enum ProductStateFields : uint32_t {
  PRODUCTSTATE_PRODUCT = 1,
  PRODUCTSTATE_NAME = 2,
  PRODUCTSTATE_VERSION = 4,
  PRODUCTSTATE_BUILD_NUMBER = 8,
  PRODUCTSTATE_CAPABILITIES = 16,
};

// The mask of product kinds; 0 by default.
uint32_t ProductState_GetProduct();
// Whether the product is of one of these kinds.
bool ProductState_IsProduct(uint32_t mask);
const char *ProductState_GetName();
// The version's text; the build's by default.
const char *ProductState_GetVersion();
uint32_t ProductState_GetBuildNumber();
uint64_t ProductState_GetCapabilities();

// The version as numbers, each of which may be null. The first call reads the text and the numbers are kept,
// whatever is set later. The text "e.x.p" stands for the build's version; another text that doesn't begin
// with three numbers stops the program.
void ProductState_GetVersionNumber(unsigned *major, unsigned *minor, unsigned *patch);

// Made by the first call and kept until ProductState_Reset, whatever is set meanwhile: "build-00042", the
// version with that behind it, and the product's place in a registry.
const char *ProductState_GetBuildNumberString();
const char *ProductState_GetFullVersion();
const char *ProductState_GetRegistryPath();
// The place of another product, as a new string (free).
char *ProductState_GetRegistryPathForProduct(const char *name);

// Sets all of the record. The texts are copied; a null one stands for the default.
void ProductState_Set(uint32_t product, const char *name, const char *version, uint32_t buildNumber,
                      uint64_t capabilities);
// Empties the record and frees the texts.
void ProductState_Reset();

// Writes the items of the mask as "key=value;", as a new string (free).
char *ProductState_Serialize(uint32_t mask);
// Reads such a text into the record and leaves what it doesn't name as it was. Items without a value, with an
// unknown key, or with a number that is none or out of range, are skipped; of two with the same key the last
// counts.
//
// Returns the mask of the items that were read.
uint32_t ProductState_Deserialize(const char *text);

#endif
