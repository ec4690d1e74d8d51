# Writes the manifest of the host's jar, with the commit that it is built from if that is known. Runs in every build; what is
# unchanged keeps its time.
#   cmake -DSOURCE=… -DVERSION=… -DCLASS_PATH=… -DOUTPUT=… -P WriteManifest.cmake
execute_process(COMMAND git -C "${SOURCE}" rev-parse --short=12 HEAD
    RESULT_VARIABLE failed OUTPUT_VARIABLE commit ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
set(manifest "Main-Class: com.quorin.sysmgt.tavl.LumetraAgent.host.Lumetra
Class-Path: ${CLASS_PATH}
Implementation-Title: Lumetra Agent
Implementation-Version: ${VERSION}
")
if(NOT failed AND EXISTS "${SOURCE}/.git")
    execute_process(COMMAND git -C "${SOURCE}" diff --quiet HEAD RESULT_VARIABLE changed ERROR_QUIET)
    if(changed)
        string(APPEND commit "+")
    endif()
    string(APPEND manifest "Lumetra-Commit: ${commit}\n")
endif()
file(CONFIGURE OUTPUT "${OUTPUT}" CONTENT "${manifest}" @ONLY)
