cmake_minimum_required(VERSION 3.25)
# cmake -DMODULES=<cmake folder> -DEDGES=<architecture-edges.txt> -P CheckLinkGraph.cmake
list(APPEND CMAKE_MODULE_PATH ${MODULES})
include(NuvrelArchitectureRules)

set(failures)

# Checks one line of the edge list ("from from-layer to to-layer", "-" for a system library),
# appending its breaches to the list named by `out`.
function(check_line line out)
  separate_arguments(parts UNIX_COMMAND "${line}")
  list(GET parts 0 from)
  list(GET parts 1 from_layer)
  list(GET parts 2 to)
  list(GET parts 3 to_layer)
  if(to_layer STREQUAL "-")
    set(to_layer "")
  endif()
  set(errors ${${out}})
  nuvrel_check_edge(${from} ${from_layer} ${to} "${to_layer}" errors)
  set(${out} ${errors} PARENT_SCOPE)
endfunction()

# Every edge of the real graph keeps the rules, and the graph has the shape of the design.
file(STRINGS ${EDGES} lines)
list(LENGTH lines count)
if(count LESS 20)
  list(APPEND failures "the link graph has only ${count} edges: was it written?")
endif()
set(errors)
foreach(line IN LISTS lines)
  check_line("${line}" errors)
endforeach()
list(APPEND failures ${errors})
foreach(expected "nuvrel_explorermodel model nuvrel_backupsession session" "nuvrel-cli cli nuvrel_backup engine"
                 "nuvrel_backup engine nuvrel_sqlite format")
  if(NOT expected IN_LIST lines)
    list(APPEND failures "missing edge: ${expected}")
  endif()
endforeach()

# Edges the design forbids are refused, each for its own reason.
foreach(bad
    "nuvrel_backup engine nuvrel_conversations engine"
    "nuvrel_backupsmodel model nuvrel_explorermodel model"
    "nuvrel-cli cli nuvrel_explorermodel model"
    "nuvrel-cli cli nuvrel_backupsession session"
    "nuvrel_explorermodel model Qt6::Widgets -"
    "nuvrel_backup engine Qt6::Widgets -"
    "nuvrel_backup engine nuvrel_platform_system platform-system"
    "nuvrel_backup engine Qt6Keychain::Qt6Keychain -"
    "nuvrel_ground ground nuvrel_backup engine"
    "nuvrel_ground ground Qt6::Gui -"
    "nuvrel_sqlite format nuvrel_conversations engine")
  set(errors)
  check_line("${bad}" errors)
  if(NOT errors)
    list(APPEND failures "not refused: ${bad}")
  endif()
endforeach()

if(failures)
  list(JOIN failures "\n  " text)
  message(FATAL_ERROR "Architecture check failed:\n  ${text}")
endif()
message(STATUS "${count} edges, every one within the layers; forbidden edges refused")
