// A module of clang-tidy's, which ./dev lint loads. Left to itself clang-tidy puts every check to every
// declaration of every header, most of which belong to the C++ library, GoogleTest and gtkmm, and then throws
// away what it found there. With this module it looks at the declarations of our own files only.

#include <clang-tidy/ClangTidyCheck.h>
#include <clang-tidy/ClangTidyModule.h>
#include <clang-tidy/ClangTidyModuleRegistry.h>

#include <vector>

namespace {

using clang::ast_matchers::MatchFinder;

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
    std::vector<clang::Decl *> own;
    for (clang::Decl *declaration : unit->decls()) {
      if (!result.SourceManager->isInSystemHeader(
              result.SourceManager->getExpansionLoc(declaration->getLocation()))) {
        own.push_back(declaration);
      }
    }
    result.Context->setTraversalScope(own);
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
