# Writes a manual page from a program's own --help and --version output, so the page never disagrees
# with the program it describes. Run with cmake -P and:
#   PROGRAM  the built program     NAME     its installed name      SUMMARY  a one-line description
#   SECTION  manual section        OUTPUT   the .gz file to write   SEE_ALSO another page, or empty
foreach(v PROGRAM NAME SUMMARY SECTION OUTPUT)
    if(NOT DEFINED ${v})
        message(FATAL_ERROR "ManPage.cmake: ${v} is not set")
    endif()
endforeach()

execute_process(COMMAND "${PROGRAM}" --help OUTPUT_VARIABLE help RESULT_VARIABLE rc_help)
execute_process(COMMAND "${PROGRAM}" --version OUTPUT_VARIABLE version RESULT_VARIABLE rc_version
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc_help EQUAL 0 OR NOT rc_version EQUAL 0 OR help STREQUAL "")
    message(FATAL_ERROR "ManPage.cmake: '${PROGRAM} --help' or '--version' failed")
endif()
string(REGEX REPLACE "^[^ ]+ " "" number "${version}")

# roff treats a backslash as an escape and a leading dot or quote as a request: escape them.
string(REPLACE "\\" "\\e" help "${help}")
string(REPLACE "-" "\\-" help "${help}")
string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" help "${help}")
string(REPLACE "-" "\\-" name_escaped "${NAME}")

set(page ".TH ${NAME} ${SECTION} \"\" \"${NAME} ${number}\" \"User Commands\"\n")
string(APPEND page ".SH NAME\n${name_escaped} \\- ${SUMMARY}\n")
string(APPEND page ".SH DESCRIPTION\nThe text below is what\n.B ${name_escaped} \\-\\-help\nprints.\n")
string(APPEND page ".PP\n.nf\n${help}.fi\n")
if(NAME STREQUAL "kavri-cli")
    string(APPEND page ".PP\nEach command describes its options with\n.BR \"kavri\\-cli \" COMMAND \" \\-\\-help\" .\n")
endif()
string(APPEND page ".SH VERSION\n${number}\n")
if(SEE_ALSO)
    string(APPEND page ".SH SEE ALSO\n.BR ${SEE_ALSO} (${SECTION})\n")
endif()

get_filename_component(dir "${OUTPUT}" DIRECTORY)
string(REGEX REPLACE "\\.gz$" "" plain "${OUTPUT}")
file(WRITE "${plain}" "${page}")
# Debian installs manual pages compressed.
file(ARCHIVE_CREATE OUTPUT "${OUTPUT}" PATHS "${plain}" FORMAT raw COMPRESSION GZip)
file(REMOVE "${plain}")
