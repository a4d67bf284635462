# -DVELMORA_SANITIZE=address builds everything with AddressSanitizer and UBSan,
# -DVELMORA_SANITIZE=thread with ThreadSanitizer. Use a separate build folder for each.
if(VELMORA_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(VELMORA_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT VELMORA_SANITIZE STREQUAL "none")
  message(FATAL_ERROR "VELMORA_SANITIZE must be none, address or thread")
endif()
