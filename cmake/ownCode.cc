// A module of clang-tidy's, which ./dev lint loads. Left to itself clang-tidy puts every check to every
// declaration of every header, most of which belong to the C++ library, GoogleTest and gtkmm, and then throws
// away what it found there. With this module it looks at the declarations of our own files only.

#include <clang-tidy/ClangTidyCheck.h>
#include <clang-tidy/ClangTidyModule.h>
#include <clang-tidy/ClangTidyModuleRegistry.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <vector>

namespace {

using clang::ast_matchers::MatchFinder;

// What a context's classes are called: those that other people's headers name, and those that we declare and
// this translation unit doesn't define.
struct ClassNames {
  void Collect(const clang::DeclContext &context) {
    for (const clang::Decl *declaration : context.decls()) {
      if (const auto *record = llvm::dyn_cast<clang::CXXRecordDecl>(declaration)) {
        Collect(*record);
      } else if (llvm::isa<clang::NamespaceDecl, clang::LinkageSpecDecl>(declaration)) {
        Collect(*llvm::cast<clang::DeclContext>(declaration));
      }
    }
  }

  void Collect(const clang::CXXRecordDecl &record) {
    if (!IsOwn(record)) {
      others.insert(record.getName());
    } else if (!record.hasDefinition()) {
      undefined.insert(record.getName());
    }
  }

  bool IsOwn(const clang::Decl &declaration) const {
    return !sources.isInSystemHeader(sources.getExpansionLoc(declaration.getLocation()));
  }

  const clang::SourceManager &sources;
  std::set<llvm::StringRef> others;
  std::set<llvm::StringRef> undefined;
};

// Finds nothing. The translation unit is the first thing that is matched, and whoever walks it asks
// afterwards which of its declarations to go into.
class OwnCodeCheck : public clang::tidy::ClangTidyCheck {
 public:
  using ClangTidyCheck::ClangTidyCheck;

  void registerMatchers(MatchFinder *finder) override {
    finder->addMatcher(clang::ast_matchers::translationUnitDecl().bind("unit"), this);
  }

  void check(const MatchFinder::MatchResult &result) override {
    const auto *unit = result.Nodes.getNodeAs<clang::TranslationUnitDecl>("unit");
    ClassNames names{*result.SourceManager, {}, {}};
    names.Collect(*unit);
    if (MayBeMisplaced(names)) {
      return;
    }
    std::vector<clang::Decl *> own;
    std::copy_if(unit->decls_begin(), unit->decls_end(), std::back_inserter(own),
                 [&names](const clang::Decl *declaration) { return names.IsOwn(*declaration); });
    result.Context->setTraversalScope(own);
  }

 private:
  // Whether a class that we declare may be one of another namespace, which a check can tell from the headers
  // alone.
  static bool MayBeMisplaced(const ClassNames &names) {
    return std::any_of(names.undefined.begin(), names.undefined.end(),
                       [&names](llvm::StringRef name) { return names.others.count(name) != 0; });
  }
};

class OwnCodeModule : public clang::tidy::ClangTidyModule {
 public:
  void addCheckFactories(clang::tidy::ClangTidyCheckFactories &factories) override {
    factories.registerCheck<OwnCodeCheck>("own-code");
  }
};

}  // namespace

// clang-tidy looks for modules in this list.
static const clang::tidy::ClangTidyModuleRegistry::Add<OwnCodeModule> registered(
    "own-code", "Looks at our own code only.");
