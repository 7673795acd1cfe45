# Compiler settings that every target of the project shares.
add_library(kestor_settings INTERFACE)
target_compile_features(kestor_settings INTERFACE cxx_std_20)
target_compile_options(kestor_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2 -Wundef
  -fno-strict-aliasing -fvisibility=hidden)
if(KESTOR_WARNINGS_AS_ERRORS)
  target_compile_options(kestor_settings INTERFACE -Werror)
endif()
target_compile_definitions(kestor_settings INTERFACE _FILE_OFFSET_BITS=64)
if(KESTOR_SANITIZE)
  target_compile_options(kestor_settings INTERFACE
    -fsanitize=${KESTOR_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(kestor_settings INTERFACE -fsanitize=${KESTOR_SANITIZE})
else()
  # The server runs on customers' machines with customers' data: the usual hardening costs next to nothing.
  target_compile_options(kestor_settings INTERFACE
    -fstack-protector-strong $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
target_link_options(kestor_settings INTERFACE -Wl,-z,relro -Wl,-z,now)

# Most of a compilation is parsing the standard library's headers. The sanitizer presets precompile them; other builds
# do not, so that a file with a missing include fails to compile.
if(KESTOR_PRECOMPILED_HEADERS)
  file(WRITE ${PROJECT_BINARY_DIR}/precompiled.cpp "")
  add_library(kestor_precompiled OBJECT ${PROJECT_BINARY_DIR}/precompiled.cpp)
  target_link_libraries(kestor_precompiled PRIVATE kestor_settings)
  target_precompile_headers(kestor_precompiled PRIVATE
    <algorithm> <array> <atomic> <chrono> <filesystem> <functional> <map> <memory> <optional> <string> <string_view>
    <vector>)
endif()

# kestor_folder(TARGET PUBLIC headers… SOURCES sources… [LINKS targets…] [PRIVATE_LINKS targets…])
#
# Makes one folder of src/ a static library. Only the headers named PUBLIC can be included from elsewhere, and only by a
# target that links to this one: each target has its own include root in the build tree, with links to its public
# headers. An include that the link lines do not allow fails to build.
function(kestor_folder target)
  cmake_parse_arguments(ARG "" "" "PUBLIC;SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR})
  set(root ${PROJECT_BINARY_DIR}/include/${target})
  file(REMOVE_RECURSE ${root})
  file(MAKE_DIRECTORY ${root}/${folder})
  foreach(header IN LISTS ARG_PUBLIC)
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${header} ${root}/${folder}/${header} SYMBOLIC)
  endforeach()
  if(ARG_SOURCES)
    add_library(${target} STATIC ${ARG_SOURCES})
    target_include_directories(${target} PUBLIC ${root})
    target_link_libraries(${target} PUBLIC ${ARG_LINKS} PRIVATE ${ARG_PRIVATE_LINKS} kestor_settings)
    if(KESTOR_PRECOMPILED_HEADERS)
      target_precompile_headers(${target} REUSE_FROM kestor_precompiled)
    endif()
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${root})
    target_link_libraries(${target} INTERFACE ${ARG_LINKS})
  endif()
endfunction()
