# How passwords are hashed: VIMBRA_CRYPT_CALL is CRYPT_R, CRYPT or NO_CRYPT, VIMBRA_CRYPT_LIBRARIES
# is what that call takes to link.
include(CheckSymbolExists)
set(VIMBRA_CRYPT_LIBRARY crypt CACHE STRING
    "Where crypt is, a name or a path; the C library itself is looked at too")
option(VIMBRA_WITHOUT_CRYPT
       "Build for a system without crypt: calls that set a password fail" OFF)

# vimbra_find_crypt(CALL LIBRARY...): the first library that has the call, if nothing is found yet.
function(vimbra_find_crypt call)
    string(TOUPPER ${call} kind)
    set(CMAKE_REQUIRED_DEFINITIONS -D_GNU_SOURCE)
    foreach(library IN LISTS ARGN ITEMS "")
        string(MAKE_C_IDENTIFIER "VIMBRA_FOUND_${kind}_IN_${library}" found)
        set(CMAKE_REQUIRED_LIBRARIES ${library})
        if(NOT VIMBRA_CRYPT_CALL)
            check_symbol_exists(${call} crypt.h ${found})
            if(${found})
                set(VIMBRA_CRYPT_CALL ${kind})
                set(VIMBRA_CRYPT_CALL ${kind} PARENT_SCOPE)
                set(VIMBRA_CRYPT_LIBRARIES ${library} PARENT_SCOPE)
            endif()
        endif()
    endforeach()
endfunction()

if(VIMBRA_WITHOUT_CRYPT)
    set(VIMBRA_CRYPT_CALL NO_CRYPT)
else()
    vimbra_find_crypt(crypt_r ${VIMBRA_CRYPT_LIBRARY})
    vimbra_find_crypt(crypt ${VIMBRA_CRYPT_LIBRARY})
    if(NOT VIMBRA_CRYPT_CALL)
        message(FATAL_ERROR "There is no crypt to hash passwords with. Name the library that has it "
                            "with -DVIMBRA_CRYPT_LIBRARY, or do without: -DVIMBRA_WITHOUT_CRYPT=ON")
    endif()
endif()
