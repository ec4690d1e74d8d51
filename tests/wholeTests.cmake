# The tests of the whole agent and of the repository, registered in the build of what is shipped. They take the
# sanitized programs from the builds beside it.

set(builds "${PROJECT_SOURCE_DIR}/build")
set(whole_environment
    LUMETRA_BUILD=${CMAKE_BINARY_DIR} LUMETRA_JAR=${CMAKE_BINARY_DIR}/java/lumetra-agent.jar
    LUMETRA_ASAN_BUILD=${builds}/asan LUMETRA_TSAN_BUILD=${builds}/tsan LUMETRA_PACKAGE_BUILD=${CMAKE_BINARY_DIR}
    LUMETRA_SCREENSHOTS=${LUMETRA_TEST_RESULTS}/screenshots LOCPATH=${builds}/locales PYTHONDONTWRITEBYTECODE=1
    PYTEST_DISABLE_PLUGIN_AUTOLOAD=1) # only what Debian's pytest is

# Each test gets mounts of its own where that is allowed, so that two never see each other's.
execute_process(COMMAND unshare --mount true RESULT_VARIABLE no_namespaces OUTPUT_QUIET ERROR_QUIET)
set(alone "")
if(no_namespaces EQUAL 0)
    set(alone unshare --mount --propagation private)
endif()

# Debian's Python has Debian's modules; another one in the path may not.
find_program(LUMETRA_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)

function(lumetra_whole_test name)
    cmake_parse_arguments(ARG "" "" "COMMAND;LABELS;ENVIRONMENT" ${ARGN})
    add_test(NAME ${name} COMMAND ${ARG_COMMAND} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}" COST 20 ENVIRONMENT "${whole_environment};${ARG_ENVIRONMENT}"
        ENVIRONMENT_MODIFICATION
        "PATH=path_list_prepend:${builds}/prometheus/usr/bin;PATH=path_list_prepend:${builds}/alertmanager/usr/bin")
endfunction()

# What a test prints, the figures of a soak among it, is kept in its XML.
set(pytest ${LUMETRA_PYTHON} -m pytest -q -rs -p no:cacheprovider -o junit_logging=system-out)

# Every test_*.py of a folder, each a test of its own.
function(lumetra_python_tests folder label)
    file(GLOB files CONFIGURE_DEPENDS ${folder}/test_*.py)
    foreach(file IN LISTS files)
        get_filename_component(name ${file} NAME_WE)
        string(REGEX REPLACE "^test_" "" name ${name})
        lumetra_whole_test(${folder}.${name} LABELS ${label} COMMAND ${alone} ${pytest}
            --junitxml=${LUMETRA_TEST_RESULTS}/${folder}.${name}.xml ${file})
        if(folder STREQUAL jvm)
            set_tests_properties(${folder}.${name} PROPERTIES FIXTURES_REQUIRED class_archive)
        endif()
    endforeach()
endfunction()

lumetra_python_tests(e2e whole)
lumetra_python_tests(faults whole)
lumetra_whole_test(faults.fault_loop_sanitized LABELS whole long ENVIRONMENT LUMETRA_BUILD=${builds}/asan COMMAND ${alone} ${pytest}
    --junitxml=${LUMETRA_TEST_RESULTS}/faults.fault_loop_sanitized.xml ${CMAKE_CURRENT_SOURCE_DIR}/faults/test_fault_loop.py)
lumetra_python_tests(jvm whole)
lumetra_whole_test(jvm.class_archive LABELS whole COMMAND ${LUMETRA_PYTHON} ${CMAKE_CURRENT_SOURCE_DIR}/jvm/class_archive.py)
set_tests_properties(jvm.class_archive PROPERTIES FIXTURES_SETUP class_archive COST 200)
lumetra_python_tests(integrations whole)
lumetra_python_tests(package whole)
lumetra_python_tests(corpus whole)
lumetra_python_tests(bench whole)

# The longest begin first, so that none of them is the last that all wait for. Seconds on two idle cores.
set_tests_properties(jvm.jvm_soak jvm.jvm_half_hour faults.fault_loop_jvm jvm.jvm_trouble PROPERTIES COST 110)
set_tests_properties(jvm.jvm_soak PROPERTIES RESOURCE_LOCK soak)
set_tests_properties(jvm.jvm_half_hour PROPERTIES RESOURCE_LOCK half_hour)
set_tests_properties(jvm.jvm_doctor package.package PROPERTIES COST 80)
set_tests_properties(jvm.jvm_agent jvm.jvm_commands jvm.jvm_replay jvm.jvm_viewer jvm.jvm_web PROPERTIES COST 35)

# The page in a browser, a file each, once the driver of the browser is there.
set(web ${CMAKE_CURRENT_SOURCE_DIR}/web)
lumetra_whole_test(web.modules LABELS whole COMMAND ${CMAKE_COMMAND} -DFOLDER=${web} -P ${web}/installModules.cmake)
set_tests_properties(web.modules PROPERTIES FIXTURES_SETUP web_modules)
execute_process(COMMAND node --test-reporter=junit -e 0 RESULT_VARIABLE no_junit OUTPUT_QUIET ERROR_QUIET)
file(GLOB web_tests CONFIGURE_DEPENDS web/*.test.mjs)
foreach(file IN LISTS web_tests)
    get_filename_component(name ${file} NAME_WE)
    set(reporters "")
    if(no_junit EQUAL 0)
        set(reporters --test-reporter=spec --test-reporter-destination=stdout
            --test-reporter=junit --test-reporter-destination=${LUMETRA_TEST_RESULTS}/web.${name}.xml)
    endif()
    lumetra_whole_test(web.${name} LABELS whole COMMAND node --test ${reporters} ${file})
    set_tests_properties(web.${name} PROPERTIES FIXTURES_REQUIRED web_modules)
endforeach()

# The numbers as they are shipped, over the reference LAPACK and over OpenBLAS.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-multiarch OUTPUT_VARIABLE multiarch OUTPUT_STRIP_TRAILING_WHITESPACE)
set(lapack_reference /usr/lib/${multiarch}/lapack)
set(lapack_openblas ${builds}/openblas/usr/lib/${multiarch}/openblas-pthread)
foreach(lapack reference openblas)
    set(name numbers.${lapack})
    set(filter "")
    if(lapack STREQUAL openblas) # nothing of these is LAPACK's
        set(filter --gtest_filter=-MedianFilter.*:SortedSearch.*:VectorKernels.*:ErrorMeasures.*:HingeSearchTies.*:TrendFile*)
    endif()
    add_test(NAME ${name}
        COMMAND tests_numbers ${filter} --gtest_brief=1 --gtest_output=xml:${LUMETRA_TEST_RESULTS}/${name}.xml)
    set_tests_properties(${name} PROPERTIES LABELS unit COST 20 ENVIRONMENT
        "LD_LIBRARY_PATH=${lapack_${lapack}}:/usr/lib/${multiarch}/blas;LUMETRA_EXPECTED_LAPACK=${lapack_${lapack}};LOCPATH=${builds}/locales")
endforeach()

# The habits of the repository.
lumetra_whole_test(house.format LABELS house COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint format)
lumetra_whole_test(house.tidy LABELS house COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint tidy)
lumetra_whole_test(house.cppcheck LABELS house COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint cppcheck)
lumetra_whole_test(house.analyze LABELS house long COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint analyze)
lumetra_whole_test(house.coverage LABELS house long COMMAND ${PROJECT_SOURCE_DIR}/scripts/coverage)
lumetra_whole_test(fuzz.run LABELS whole long COMMAND ${PROJECT_SOURCE_DIR}/fuzz/run 60)
lumetra_whole_test(mutants LABELS whole long COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/mutants/run)
set_tests_properties(mutants fuzz.run PROPERTIES RUN_SERIAL ON)
