# Sources are picked up by folder so that adding an engine means adding a header/source pair and nothing else.
function(vm_glob_sources out)
  set(files)
  foreach(dir IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS ${dir}/*.cpp)
    list(APPEND files ${found})
  endforeach()
  set(${out} ${files} PARENT_SCOPE)
endfunction()

# The folder that holds skin, help, samples and other shipped data.
set(VM_ASSETS_DIR ${CMAKE_SOURCE_DIR}/assets)
