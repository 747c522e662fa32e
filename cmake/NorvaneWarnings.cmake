# Warnings are errors in all of Norvane's own targets.
add_library(norvane_warnings INTERFACE)
target_compile_options(norvane_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow=local -Wnon-virtual-dtor -Wcast-align
  -Wimplicit-fallthrough
  # GCC 12 at -O3 reports false -Wrestrict and -Wmaybe-uninitialized inside
  # libstdc++'s string and optional (GCC bugs 105329, 105562).
  -Wno-restrict -Wno-maybe-uninitialized)
