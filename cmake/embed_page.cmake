# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# cmake -D FOLDER=... -D THREE=... -D OUTPUT=... -P embed_page.cmake: writes the parts of a report's page as one C++
# source. The modules are put one behind the other in the order in which they need each other: what they import and
# export is all in one scope then.
set(modules colors decode orbit cloud outline pick section panel picture main)

set(script "")
foreach(module IN LISTS modules)
  file(READ ${FOLDER}/${module}.js text)
  string(REGEX REPLACE "\nimport [^;]*;" "" text "\n${text}")
  string(REGEX REPLACE "\nexport " "\n" text "${text}")
  string(APPEND script "${text}")
endforeach()
string(PREPEND script "(function () {\n\"use strict\";\n")
string(APPEND script "})();\n")

file(READ ${FOLDER}/page.html frame)
file(READ ${FOLDER}/page.css style)
file(READ ${FOLDER}/notices.txt notices)
file(READ ${THREE} three)

set(source "#include \"tools/report/page_assets.hpp\"\n\nnamespace vorn::tools::page {\n")
foreach(part IN ITEMS frame style script three notices)
  string(FIND "${${part}}" ")vorn-page\"" end)
  if(NOT end EQUAL -1)
    message(FATAL_ERROR "${part} holds what ends a string of the source")
  endif()
  string(APPEND source "std::string_view const ${part} = R\"vorn-page(${${part}})vorn-page\";\n")
endforeach()
string(APPEND source "} // namespace vorn::tools::page\n")
file(WRITE ${OUTPUT} "${source}")
