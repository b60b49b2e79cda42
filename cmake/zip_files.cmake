# Runs before the zip file is written. Removes the debug information, also that of the compiler's runtime, and gives all files one
# time, that of SOURCE_DATE_EPOCH or 2000-01-01. So the same sources result in the same files. The bytes of the zip file itself
# differ, because CPack also writes the times of the last access to its copies.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
file(GLOB programs ${root}/bin/*.exe ${root}/bin/*.dll)
# strip writes the present time into a program unless it keeps the former one.
execute_process(COMMAND ${CPACK_KEST_STRIP} --preserve-dates ${programs} COMMAND_ERROR_IS_FATAL ANY)
set(epoch 946684800)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(epoch $ENV{SOURCE_DATE_EPOCH})
endif()
execute_process(COMMAND find ${root} -exec touch --no-dereference --date=@${epoch} {} + COMMAND_ERROR_IS_FATAL ANY)
