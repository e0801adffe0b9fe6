# The module of clang-tidy's that ./dev lint loads. Nothing else needs it, nor clang's headers.
find_path(CLANG_TIDY_HEADERS clang-tidy/ClangTidyCheck.h PATHS /usr/lib/llvm-14/include)
if(CLANG_TIDY_HEADERS)
  add_library(own_code MODULE EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/ownCode.cc)
  target_include_directories(own_code SYSTEM PRIVATE ${CLANG_TIDY_HEADERS})
  # clang has no run-time types; and what g++ finds in its headers isn't ours.
  target_compile_options(own_code PRIVATE ${OST_WARNINGS} -Wno-nonnull -fno-rtti)
endif()
