#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstring>
#include <memory>

#include "formatInt.h"
#include "installerdb.h"
#include "kprep.h"
#include "log.h"
#include "posixPosix.h"

namespace {

struct XmlRelease {
  void operator()(xmlChar *text) const { xmlFree(text); }
};
using OwnedXmlText = std::unique_ptr<xmlChar, XmlRelease>;
using OwnedDocument = std::unique_ptr<xmlDoc, Releaser<xmlFreeDoc>>;

const xmlChar *XmlText(const char *text) {
  return reinterpret_cast<const xmlChar *>(text);
}

char *Take(OwnedXmlText *text) {
  return reinterpret_cast<char *>(text->release());
}

void FreeText(gpointer text) {
  xmlFree(text);
}

void FreeEntry(gpointer data) {
  auto *entry = static_cast<KernPrep_ModuleEntry *>(data);
  FreeText(entry->name);
  FreeText(entry->description);
  FreeText(entry->key);
  g_list_free_full(entry->dependencies, FreeText);
  g_free(entry);
}

bool IsElement(const xmlNode *node, const char *name) {
  return node->type == XML_ELEMENT_NODE && xmlStrcmp(node->name, XmlText(name)) == 0;
}

OwnedXmlText Attribute(const xmlNode *node, const char *name) {
  return OwnedXmlText(xmlGetProp(node, XmlText(name)));
}

void KeepQuiet(void * /*context*/, xmlErrorPtr /*error*/) {}

// The parser would write every complaint to standard error; the log gets the one that stopped it instead.
OwnedDocument ParseFile(const char *path) {
  xmlResetLastError();
  xmlSetStructuredErrorFunc(nullptr, KeepQuiet);
  OwnedDocument document(xmlReadFile(path, nullptr, 0));
  xmlSetStructuredErrorFunc(nullptr, nullptr);
  if (!document) {
    Log("Unable to parse module list file %s\n", path);
    // A file that can't be read has no line.
    if (const xmlError *error = xmlGetLastError(); error && error->message && error->line > 0) {
      Log("Line %d: %s", error->line, error->message);
    }
  }
  return document;
}

// Puts the names of one group of dependencies in front of `names`, the last one first.
GList *ReadGroup(const xmlNode *group, GList *names) {
  for (const xmlNode *node = group->children; node; node = node->next) {
    if (!IsElement(node, "dependency")) {
      continue;
    }
    OwnedXmlText name = Attribute(node, "name");
    if (!name) {
      Log("Unnamed dependency in module list file.\n");
      continue;
    }
    names = g_list_prepend(names, Take(&name));
  }
  return names;
}

GList *ReadDependencies(const xmlNode *module) {
  GList *names = nullptr;
  for (const xmlNode *node = module->children; node; node = node->next) {
    if (IsElement(node, "dependencies")) {
      names = ReadGroup(node, names);
    }
  }
  return g_list_reverse(names);
}

// Returns a new entry, or null when an attribute is missing.
KernPrep_ModuleEntry *ReadModule(const xmlNode *module) {
  OwnedXmlText name = Attribute(module, "name");
  const OwnedXmlText required = Attribute(module, "required");
  OwnedXmlText key = Attribute(module, "key");
  OwnedXmlText description = Attribute(module, "description");
  if (!name || !required || !description) {
    return nullptr;
  }
  if (!key) {
    key.reset(xmlStrdup(XmlText("")));
  }
  auto *entry = g_new0(KernPrep_ModuleEntry, 1);
  entry->name = Take(&name);
  entry->description = Take(&description);
  entry->key = Take(&key);
  entry->required = xmlStrcmp(required.get(), XmlText("true")) == 0;
  entry->dependencies = ReadDependencies(module);
  return entry;
}

GList *ReadModules(const xmlNode *root) {
  GList *list = nullptr;
  for (const xmlNode *node = root->children; node; node = node->next) {
    if (!IsElement(node, "module")) {
      continue;
    }
    KernPrep_ModuleEntry *entry = ReadModule(node);
    if (!entry) {
      Log("Module list file is not complete.\n");
      break;
    }
    list = g_list_prepend(list, entry);
  }
  return g_list_reverse(list);
}

// The installation's recorded choice alone decides for an entry with a key.
bool IsWanted(const KernPrep_ModuleEntry *entry) {
  if (entry->key[0] == '\0') {
    return entry->required;
  }
  const char *answer = InstallerDB_GetAnswer(entry->key);
  return answer && strcmp(answer, "yes") == 0;
}

}  // namespace

GList *KernPrep_ReadModuleList(const char *path) {
  const OwnedDocument document = ParseFile(path);
  if (!document) {
    return nullptr;
  }
  const xmlNode *root = xmlDocGetRootElement(document.get());
  if (!root) {
    Log("Module list is empty.\n");
    return nullptr;
  }
  if (!IsElement(root, "modules")) {
    return nullptr;
  }
  return ReadModules(root);
}

void KernPrep_FreeModuleList(GList *list) {
  g_list_free_full(list, FreeEntry);
}

GList *KernPrep_GetUnsatisfiedModules(GList *list) {
  GList *unsatisfied = nullptr;
  for (const GList *cell = list; cell; cell = cell->next) {
    auto *entry = static_cast<KernPrep_ModuleEntry *>(cell->data);
    if (IsWanted(entry) && !KernPrep_ModuleIsInstalled(entry->name)) {
      unsatisfied = g_list_prepend(unsatisfied, entry);
    }
  }
  return g_list_reverse(unsatisfied);
}

bool KernPrep_HasUnsatisfiedModules(GList *list) {
  const std::unique_ptr<GList, Releaser<g_list_free>> unsatisfied(KernPrep_GetUnsatisfiedModules(list));
  return unsatisfied != nullptr;
}

const char *KernPrep_FindInPath(const char *program) {
  static char found[4097];
  if (!program || program[0] == '\0') {
    return nullptr;
  }
  const OwnedText path(g_find_program_in_path(program));
  if (!path) {
    return nullptr;
  }
  g_strlcpy(found, path.get(), sizeof found);
  return found;
}

bool KernPrep_ModuleIsInstalled(const char *module) {
  const char *modinfo = KernPrep_FindInPath("modinfo");
  if (!modinfo) {
    Log("Unable to locate modinfo\n");
    return false;
  }
  return Posix_System(EngineFormat("%s %s", modinfo, module).get()) == 0;
}
