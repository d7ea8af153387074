# The layers of Nuvrel and what each may link. Shared by the configure-time check of the real link
# graph (NuvrelArchitecture.cmake) and by the test that proves the rules refuse what they must.
#
#   ground           shared pieces, l10n, platform interfaces      Qt Core
#   platform-system  the platform interfaces' implementations      only the app and the CLI link it
#   format           property lists, SQLite, crypto, PDF, media    ground
#   engine           backup, conversations, …                      ground, formats; never another engine
#   session          what several page models share               ground, formats, engines
#   model            one page's model                              the above; never another page's model
#   app              the window and its views                      anything but the CLI
#   cli              nuvrel-cli                                    engines, never sessions or page models
include_guard(GLOBAL)

set(NUVREL_LAYER_ALLOWS_ground ground)
set(NUVREL_LAYER_ALLOWS_platform-system ground)
set(NUVREL_LAYER_ALLOWS_format ground format)
set(NUVREL_LAYER_ALLOWS_engine ground format)
set(NUVREL_LAYER_ALLOWS_session ground format engine)
set(NUVREL_LAYER_ALLOWS_model ground format engine session)
set(NUVREL_LAYER_ALLOWS_app ground format engine session model platform-system app)
set(NUVREL_LAYER_ALLOWS_cli ground format engine platform-system)

# Qt modules (and other libraries whose name says a layer) each layer may use.
set(NUVREL_LAYER_QT_ground Core)
set(NUVREL_LAYER_QT_platform-system Core Gui DBus)
set(NUVREL_LAYER_QT_format Core Gui)
set(NUVREL_LAYER_QT_engine Core Gui Pdf Network) # Network: the transfer engine's server
set(NUVREL_LAYER_QT_session Core Gui)
set(NUVREL_LAYER_QT_model Core Gui)
set(NUVREL_LAYER_QT_app Core Gui Widgets Network Svg DBus)
set(NUVREL_LAYER_QT_cli Core Gui Network)

# Checks one edge. `from_layer` links `to`, which is either a Nuvrel target of layer `to_layer` (with
# `same_target` false when it is a different target), or an external library (`to_layer` empty).
# Appends a sentence to the list named by `out` when the edge breaks a rule.
function(nuvrel_check_edge from from_layer to to_layer out)
  set(errors ${${out}})
  if(NOT DEFINED NUVREL_LAYER_ALLOWS_${from_layer})
    list(APPEND errors "${from} has no known layer '${from_layer}'")
  elseif(to_layer)
    if(NOT to_layer IN_LIST NUVREL_LAYER_ALLOWS_${from_layer})
      list(APPEND errors "${from} (${from_layer}) may not link ${to} (${to_layer})")
    elseif(from_layer STREQUAL to_layer AND from_layer MATCHES "^(engine|model)$")
      list(APPEND errors "${from} may not link ${to}: one ${from_layer} never links another")
    endif()
  elseif(to MATCHES "^Qt6::(.+)$")
    set(module ${CMAKE_MATCH_1})
    if(NOT module IN_LIST NUVREL_LAYER_QT_${from_layer})
      list(APPEND errors "${from} (${from_layer}) may not link ${to}")
    endif()
  elseif(to MATCHES "Keychain" AND NOT from_layer STREQUAL "platform-system")
    list(APPEND errors "${from} (${from_layer}) may not link ${to}: the keychain is a platform service")
  endif()
  set(${out} ${errors} PARENT_SCOPE)
endfunction()
