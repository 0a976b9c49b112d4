// SPDX-License-Identifier: MIT
// A module for clang-tidy that keeps its walk to our own code.
//
// clang-tidy takes every check through all that a file includes, GoogleTest and the C++ library as well, and throws
// away what it finds there. For a test that is three quarters of its time. The first thing that it meets is the file
// as a whole. The one check here answers to that, and from then on headers of the system are left out. The static
// analyser has a walk of its own. Functions that the code calls are known as before: they are looked up, not met.
#include <clang-tidy/ClangTidyCheck.h>
#include <clang-tidy/ClangTidyModule.h>
#include <clang-tidy/ClangTidyModuleRegistry.h>
#include <clang/ASTMatchers/ASTMatchFinder.h>

#include <vector>

namespace {

class OwnCode final : public clang::tidy::ClangTidyCheck {
  public:
    using ClangTidyCheck::ClangTidyCheck;

    void registerMatchers(clang::ast_matchers::MatchFinder* finder) override {
        finder->addMatcher(clang::ast_matchers::translationUnitDecl(), this);
    }

    void check(const clang::ast_matchers::MatchFinder::MatchResult& result) override {
        const clang::SourceManager& sources = *result.SourceManager;
        std::vector<clang::Decl*> own;
        for (clang::Decl* declaration : result.Context->getTranslationUnitDecl()->decls()) {
            // Where a macro stands, not where it was defined: TEST is GoogleTest's.
            const clang::SourceLocation place = sources.getExpansionLoc(declaration->getLocation());
            if (place.isValid() && !sources.isInSystemHeader(place)) {
                own.push_back(declaration);
            }
        }
        result.Context->setTraversalScope(own);
    }
};

class OwnCodeModule final : public clang::tidy::ClangTidyModule {
  public:
    void addCheckFactories(clang::tidy::ClangTidyCheckFactories& factories) override {
        factories.registerCheck<OwnCode>("orvo-own-code");
    }
};

const clang::tidy::ClangTidyModuleRegistry::Add<OwnCodeModule> kModule("orvo-module",
                                                                       "Keeps to our own code.");

} // namespace
