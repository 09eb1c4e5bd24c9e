# The folder of what script/bootstrap made from source, once per machine.
if(DEFINED ENV{XDG_CACHE_HOME})
    set(MADE_FROM_SOURCE $ENV{XDG_CACHE_HOME}/snconfig)
else()
    set(MADE_FROM_SOURCE $ENV{HOME}/.cache/snconfig)
endif()
