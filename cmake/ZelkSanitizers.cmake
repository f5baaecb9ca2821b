# ZELK_SANITIZE selects a sanitizer build: "address" (AddressSanitizer + UndefinedBehaviorSanitizer)
# or "thread" (ThreadSanitizer). Empty builds without instrumentation.
set(ZELK_SANITIZE "" CACHE STRING "Sanitizer build: address, thread or empty")
set_property(CACHE ZELK_SANITIZE PROPERTY STRINGS "" address thread)

if(ZELK_SANITIZE STREQUAL "address")
  set(_zelk_san_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
elseif(ZELK_SANITIZE STREQUAL "thread")
  set(_zelk_san_flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT ZELK_SANITIZE STREQUAL "")
  message(FATAL_ERROR "ZELK_SANITIZE must be address, thread or empty, not '${ZELK_SANITIZE}'")
endif()

if(_zelk_san_flags)
  # GCC's flow analysis under sanitizer instrumentation reports uninitialised members inside the
  # standard library's regex and function objects that are not; plain builds keep the warning.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  add_compile_options(${_zelk_san_flags})
  add_link_options(${_zelk_san_flags})
endif()
