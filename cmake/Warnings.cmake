# What every target of ours is compiled with. The timestamp's two-digit year is the record's format.
add_library(kelchk_warnings INTERFACE)
target_compile_options(kelchk_warnings INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wundef -Wformat=2 -Wno-format-y2k -Werror=format-security -Werror=format-nonliteral
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Wimplicit-fallthrough>)
