# lumenvale_warnings(target): the project's warning set, errors when LUMENVALE_WERROR is on.
function(lumenvale_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual -Wimplicit-fallthrough)
  if(LUMENVALE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
