# velo_elf_architecture(FILE RESULT): sets RESULT to Debian's name for what the ELF file FILE was made for, and to
# "unknown" where FILE is no ELF file or is for something without a row here.
set(velo_elf_rows  # class and byte order, machine, as they stand in the header
  0201:3e00=amd64 0101:0300=i386 0201:b700=arm64 0101:2800=armhf 0201:f300=riscv64 0101:0800=mipsel 0201:0800=mips64el)

function(velo_elf_architecture file result)
  set(${result} unknown PARENT_SCOPE)
  file(READ ${file} header LIMIT 52 HEX)
  string(LENGTH "${header}" length)
  if(length LESS 104 OR NOT header MATCHES "^7f454c46")
    return()
  endif()
  string(SUBSTRING ${header} 8 4 kind)
  string(SUBSTRING ${header} 36 4 machine)
  if(NOT "${velo_elf_rows};" MATCHES "${kind}:${machine}=([a-z0-9]+);")
    return()
  endif()
  set(architecture ${CMAKE_MATCH_1})
  string(SUBSTRING ${header} 74 2 flags)
  if(architecture STREQUAL armhf AND flags STREQUAL 02)  # calls without the floating-point registers
    set(architecture armel)
  endif()
  set(${result} ${architecture} PARENT_SCOPE)
endfunction()
