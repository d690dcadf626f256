# prb_add_jar(name OUTPUT file DIR folder [MAIN class] [CLASSPATH target] [RELEASE n]):
# compiles every .java below the folder and packs it. Class files carry no debug surprises:
# line tables and variables are kept, as a server's build would.
function(prb_add_jar name)
    cmake_parse_arguments(ARG "" "OUTPUT;DIR;MAIN;CLASSPATH;RELEASE;MANIFEST" "" ${ARGN})
    if(NOT ARG_RELEASE)
        set(ARG_RELEASE 8)
    endif()
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${ARG_DIR}/*.java)
    if(NOT sources)
        add_custom_target(${name})
        return()
    endif()
    set(classes ${CMAKE_CURRENT_BINARY_DIR}/${name}.classes)
    set(javac ${PRB_JAVA_HOME}/bin/javac --release ${ARG_RELEASE} -g -Xlint:all,-options,-serial
        -Werror -encoding UTF-8 -d ${classes})
    set(depends ${sources})
    if(ARG_CLASSPATH)
        get_target_property(cp ${ARG_CLASSPATH} PRB_JAR)
        list(APPEND javac -cp ${cp})
        list(APPEND depends ${cp} ${ARG_CLASSPATH})
    endif()
    set(jar ${PRB_JAVA_HOME}/bin/jar --create --file ${ARG_OUTPUT} --date=2020-01-01T00:00:00Z)
    if(ARG_MAIN)
        list(APPEND jar --main-class ${ARG_MAIN})
    endif()
    if(ARG_MANIFEST)
        list(APPEND jar --manifest ${ARG_MANIFEST})
        list(APPEND depends ${ARG_MANIFEST})
    endif()
    add_custom_command(
        OUTPUT ${ARG_OUTPUT}
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${classes}
        COMMAND ${javac} ${sources}
        COMMAND ${jar} -C ${classes} .
        DEPENDS ${depends}
        COMMENT "Building ${name}"
        VERBATIM)
    add_custom_target(${name} ALL DEPENDS ${ARG_OUTPUT})
    set_target_properties(${name} PROPERTIES PRB_JAR ${ARG_OUTPUT})
endfunction()
