# Makes the HTML report's page one C++ header: report.html with report.css
# and report.js put in place of the lines that link them, as raw string
# literals of at most 8,000 bytes each (compilers limit one literal's
# length), cut after a line so that no character is split.
#
#   cmake -DPAGE_DIR=<dir of report.html> -DOUTPUT=<header> -P EmbedPage.cmake

file(READ ${PAGE_DIR}/report.html page)
file(READ ${PAGE_DIR}/report.css css)
file(READ ${PAGE_DIR}/report.js js)

# Each link once, each file whole inside its element.
function(inline_once link element text)
  string(FIND "${page}" "${link}" at)
  string(FIND "${page}" "${link}" last REVERSE)
  if(at EQUAL -1 OR NOT at EQUAL last)
    message(FATAL_ERROR "report.html: expected the line ${link} once")
  endif()
  string(TOLOWER "${text}" lower)
  string(FIND "${lower}" "</${element}" closing)
  if(NOT closing EQUAL -1)
    message(FATAL_ERROR "${link}: the text holds </${element}, which would end its element")
  endif()
  string(REPLACE "${link}" "<${element}>\n${text}</${element}>" replaced "${page}")
  set(page "${replaced}" PARENT_SCOPE)
endfunction()
inline_once([[<link rel="stylesheet" href="report.css">]] style "${css}")
inline_once([[<script src="report.js"></script>]] script "${js}")

string(FIND "${page}" "@DATA@" at)
string(FIND "${page}" "@DATA@" last REVERSE)
if(at EQUAL -1 OR NOT at EQUAL last)
  message(FATAL_ERROR "report.html: expected @DATA@ once")
endif()

set(delimiter "PAGE")
string(FIND "${page}" ")${delimiter}\"" collision)
if(NOT collision EQUAL -1)
  message(FATAL_ERROR "the page holds )${delimiter}\", which would end its literal")
endif()

set(chunks "")
string(LENGTH "${page}" left)
while(left GREATER 0)
  set(size 8000)
  if(left GREATER size)
    string(SUBSTRING "${page}" 0 ${size} chunk)
    string(FIND "${chunk}" "\n" newline REVERSE)
    if(newline GREATER 0)
      math(EXPR size "${newline} + 1")
    endif()
  else()
    set(size ${left})
  endif()
  string(SUBSTRING "${page}" 0 ${size} chunk)
  string(SUBSTRING "${page}" ${size} -1 page)
  string(APPEND chunks "R\"${delimiter}(${chunk})${delimiter}\",\n")
  math(EXPR left "${left} - ${size}")
endwhile()

set(header "// Made by tools/inspect/page/EmbedPage.cmake from report.html, report.css
// and report.js beside it: edit those.
#pragma once

namespace inspect {
namespace page {

// The page in pieces, to be joined in order; the data goes in at @DATA@.
const char* const kPieces[] = {
${chunks}};

}  // namespace page
}  // namespace inspect
")
# Rewritten only when it changes, so that an unchanged page compiles nothing.
set(previous "")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} previous)
endif()
if(NOT previous STREQUAL header)
  file(WRITE ${OUTPUT} "${header}")
endif()
