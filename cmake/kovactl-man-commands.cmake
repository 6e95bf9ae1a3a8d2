# Writes help2man's include file for kovactl(1): a COMMANDS section with each command's own
# usage text, in the order of `kovactl --completion` (the command table itself).
# cmake -DKOVACTL=path/to/kovactl -DOUT=file.h2m -P kovactl-man-commands.cmake
unset(ENV{KOVA_ROOT})
execute_process(COMMAND ${KOVACTL} --completion OUTPUT_VARIABLE table RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${KOVACTL} --completion failed (${rc})")
endif()
string(REPLACE "\n" ";" lines "${table}")
set(text "[COMMANDS]\n")
foreach(line ${lines})
    string(REGEX MATCH "^[^ ]+" command "${line}")
    if(NOT command)
        continue()
    endif()
    execute_process(COMMAND ${KOVACTL} ${command} --help
        OUTPUT_VARIABLE usage ERROR_VARIABLE usage RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "kovactl ${command} --help failed (${rc}): ${usage}")
    endif()
    # roff: backslashes escaped, and no line may start a request.
    string(REPLACE "\\" "\\e" usage "${usage}")
    string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" usage "${usage}")
    string(APPEND text ".SS ${command}\n.nf\n${usage}.fi\n")
endforeach()
file(WRITE ${OUT} "${text}")
