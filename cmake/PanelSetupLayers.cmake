# The daemon's libraries in tiers: a library links and includes only
# libraries of lower tiers.
#
#   panel_setup_layer_library(NAME TIER n FOLDER dir
#                             SOURCES file... [HEADERS file...] [LINKS lib...])
#
# Configuring fails when a library links one of its own tier or higher (or one
# not yet declared, which is the same mistake). Each library's headers are
# staged as links under <build>/layers/<NAME>/<dir>/, and that is the only
# include directory it gives to whoever links it: a source sees the headers of
# its own library and of the libraries it links, so an include that runs
# upward does not find its file and the build fails.
#
# <build>/layers/table lists each library with its tier and what it may see,
# and each file with its library, for scripts/check-layers.

file(WRITE ${PROJECT_BINARY_DIR}/layers/table "")

function(panel_setup_layer_library name)
    cmake_parse_arguments(PARSE_ARGV 1 layer "" "TIER;FOLDER" "SOURCES;HEADERS;LINKS")
    if(NOT DEFINED layer_TIER OR NOT layer_FOLDER OR NOT layer_SOURCES)
        message(FATAL_ERROR "panel_setup_layer_library(${name}): TIER, FOLDER and SOURCES are required")
    endif()
    foreach(dependency IN LISTS layer_LINKS)
        get_property(dependency_tier GLOBAL PROPERTY PANEL_SETUP_TIER_${dependency})
        if(dependency_tier STREQUAL "")
            message(FATAL_ERROR "Layering: ${name} (tier ${layer_TIER}) links ${dependency}, "
                "which is no library of a lower tier")
        endif()
        if(NOT dependency_tier LESS layer_TIER)
            message(FATAL_ERROR "Layering: ${name} (tier ${layer_TIER}) links ${dependency} "
                "(tier ${dependency_tier}); a library links only lower tiers")
        endif()
    endforeach()
    set_property(GLOBAL PROPERTY PANEL_SETUP_TIER_${name} ${layer_TIER})
    set(visible ${name})
    foreach(dependency IN LISTS layer_LINKS)
        get_property(dependency_visible GLOBAL PROPERTY PANEL_SETUP_VISIBLE_${dependency})
        list(APPEND visible ${dependency_visible})
    endforeach()
    list(REMOVE_DUPLICATES visible)
    set_property(GLOBAL PROPERTY PANEL_SETUP_VISIBLE_${name} ${visible})
    list(JOIN visible " " visible_line)
    set(table_lines "library ${name} ${layer_TIER} ${visible_line}\n")
    foreach(file IN LISTS layer_SOURCES layer_HEADERS)
        string(APPEND table_lines "file ${layer_FOLDER}/${file} ${name}\n")
    endforeach()
    file(APPEND ${PROJECT_BINARY_DIR}/layers/table "${table_lines}")
    set_property(GLOBAL APPEND PROPERTY PANEL_SETUP_LAYER_LIBRARIES ${name})

    set(staged ${PROJECT_BINARY_DIR}/layers/${name})
    foreach(header IN LISTS layer_HEADERS)
        file(MAKE_DIRECTORY ${staged}/${layer_FOLDER})
        file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${layer_FOLDER}/${header}
             ${staged}/${layer_FOLDER}/${header} SYMBOLIC)
    endforeach()
    list(TRANSFORM layer_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/${layer_FOLDER}/)
    set(header_paths ${layer_HEADERS})
    list(TRANSFORM header_paths PREPEND ${PROJECT_SOURCE_DIR}/${layer_FOLDER}/)

    add_library(${name} STATIC ${layer_SOURCES} ${header_paths})
    file(MAKE_DIRECTORY ${staged})
    target_include_directories(${name} PUBLIC ${staged})
    target_link_libraries(${name} PUBLIC ${layer_LINKS})
endfunction()
