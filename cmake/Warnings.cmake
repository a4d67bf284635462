# velmora_warnings(target): the warning set for our own code (not third-party headers).
function(velmora_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wno-missing-field-initializers)
  if(VELMORA_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# velmora_glob_sources(out folder): the C++ sources of a folder tree, platform files of
# other systems left out (files ending in _mac.cpp or .mm belong to the macOS backend).
function(velmora_glob_sources out folder)
  file(GLOB_RECURSE found CONFIGURE_DEPENDS "${folder}/*.cpp" "${folder}/*.h")
  list(FILTER found EXCLUDE REGEX "_mac\\.(cpp|h)$")
  set(${out} ${found} PARENT_SCOPE)
endfunction()
