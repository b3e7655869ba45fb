# Run by cpack when it has made packages: an SPDX 2.3 document beside each, PACKAGE.spdx.json, that says what is in it and
# what is linked with it, with versions and licences. The same package gives the same document: its time is
# SOURCE_DATE_EPOCH, which is set by then.
string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)

# Soname (a pattern), component, licence, supplier.
set(components
  "^libcurl\\." curl curl "Organization: curl project"
  "^libstdc\\+\\+\\." gcc "GPL-3.0-or-later WITH GCC-exception-3.1" "Organization: Free Software Foundation"
  "^libgcc_s\\." gcc "GPL-3.0-or-later WITH GCC-exception-3.1" "Organization: Free Software Foundation"
  "^libatomic\\." gcc "GPL-3.0-or-later WITH GCC-exception-3.1" "Organization: Free Software Foundation"
  "^(libc\\+\\+|libunwind|libc\\+\\+abi)\\." llvm "Apache-2.0 WITH LLVM-exception" "Organization: LLVM project"
  "^(ld-musl-.*|libc)\\.(so|musl-.*)$" musl MIT "Organization: musl project"
  "^(libc|libm|libpthread|libdl|librt|ld-linux.*)\\.so" glibc LGPL-2.1-or-later "Organization: GNU C library project"
  "^lib(vq_ipca|ef|usock)\\." vendor NOASSERTION NOASSERTION)

# The component of a library that is linked, in component, licence, supplier and version. One that is not known is named all
# the same.
function(describe soname)
  set(component unknown)
  set(licence NOASSERTION)
  set(supplier NOASSERTION)
  set(rest ${components})
  while(rest)
    list(POP_FRONT rest pattern name its_licence its_supplier)
    if(soname MATCHES "${pattern}")
      set(component ${name})
      set(licence ${its_licence})
      set(supplier ${its_supplier})
      break()
    endif()
  endwhile()
  set(version "")
  foreach(known IN LISTS CPACK_VELO_VERSIONS)
    if(known MATCHES "^${component}=(.+)$")
      set(version ${CMAKE_MATCH_1})
    endif()
  endforeach()
  return(PROPAGATE component licence supplier version)
endfunction()

# What else is to be said of a library: a version is the one that was built with; a library of the camera's maker is known
# by its checksum.
function(note_on soname)
  set(note "
      \"comment\": \"As it was at the build; the device may have a newer one.\",")
  if(component STREQUAL "vendor")
    set(library ${CPACK_VELO_VENDOR_LIB_DIR}/${soname})
    set(note "
      \"comment\": \"Of the camera's maker; not in this package. Linked with a stand-in.\",")
    if(CPACK_VELO_VENDOR_LIB_DIR AND EXISTS ${library})
      file(SHA256 ${library} checksum)
      set(note "
      \"comment\": \"Of the camera's maker; not in this package.\",
      \"checksums\": [
        {
          \"algorithm\": \"SHA256\",
          \"checksumValue\": \"${checksum}\"
        }
      ],")
    endif()
  endif()
  return(PROPAGATE note)
endfunction()

function(add_linked soname relation)
  describe(${soname})
  string(REGEX REPLACE "[^A-Za-z0-9.-]" "-" id ${soname})
  string(APPEND packages ",
    {
      \"SPDXID\": \"SPDXRef-${id}\",
      \"name\": \"${soname}\",
      \"supplier\": \"${supplier}\",
      \"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": false,")
  if(version)
    string(APPEND packages "
      \"versionInfo\": \"${version}\",
      \"externalRefs\": [
        {
          \"referenceCategory\": \"PACKAGE-MANAGER\",
          \"referenceType\": \"purl\",
          \"referenceLocator\": \"pkg:generic/${component}@${version}\"
        }
      ],")
  endif()
  note_on(${soname})
  string(APPEND packages "${note}")
  string(APPEND packages "
      \"licenseConcluded\": \"${licence}\",
      \"licenseDeclared\": \"${licence}\",
      \"copyrightText\": \"NOASSERTION\",
      \"primaryPackagePurpose\": \"LIBRARY\"
    }")
  string(APPEND relationships ",
    {
      \"spdxElementId\": \"SPDXRef-veloagent\",
      \"relationshipType\": \"${relation}\",
      \"relatedSpdxElement\": \"SPDXRef-${id}\"
    }")
  return(PROPAGATE packages relationships)
endfunction()

function(write_document package)
  file(SHA256 ${package} checksum)
  cmake_path(GET package FILENAME name)
  set(packages "
    {
      \"SPDXID\": \"SPDXRef-veloagent\",
      \"name\": \"veloagent\",
      \"versionInfo\": \"${CPACK_PACKAGE_VERSION}\",
      \"packageFileName\": \"${name}\",
      \"supplier\": \"Organization: ${CPACK_PACKAGE_VENDOR}\",
      \"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": false,
      \"checksums\": [
        {
          \"algorithm\": \"SHA256\",
          \"checksumValue\": \"${checksum}\"
        }
      ],
      \"licenseConcluded\": \"MIT\",
      \"licenseDeclared\": \"MIT\",
      \"copyrightText\": \"Copyright (c) 2026 ${CPACK_PACKAGE_VENDOR}\",
      \"primaryPackagePurpose\": \"${purpose}\"
    }")
  set(relationships "
    {
      \"spdxElementId\": \"SPDXRef-DOCUMENT\",
      \"relationshipType\": \"DESCRIBES\",
      \"relatedSpdxElement\": \"SPDXRef-veloagent\"
    }")
  foreach(soname IN LISTS linked)
    add_linked(${soname} DYNAMIC_LINK)
  endforeach()
  if(linked AND NOT linked MATCHES "lib(std)?c\\+\\+\\.")
    add_linked(libstdc++.a STATIC_LINK)
  endif()
  set(document "{
  \"spdxVersion\": \"SPDX-2.3\",
  \"dataLicense\": \"CC0-1.0\",
  \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"${name}\",
  \"documentNamespace\": \"https://example.org/veloagent/spdx/${name}-${checksum}\",
  \"creationInfo\": {
    \"created\": \"${created}\",
    \"creators\": [
      \"Organization: ${CPACK_PACKAGE_VENDOR}\",
      \"Tool: cpack\"
    ]
  },
  \"packages\": [${packages}
  ],
  \"relationships\": [${relationships}
  ]
}
")
  string(JSON parsed ERROR_VARIABLE error GET "${document}" spdxVersion)
  if(error)
    message(FATAL_ERROR "${name}.spdx.json: ${error}")
  endif()
  file(WRITE ${CPACK_PACKAGE_DIRECTORY}/${name}.spdx.json "${document}")
endfunction()

set(purpose SOURCE)
set(linked "")
if(CPACK_INSTALL_CMAKE_PROJECTS)
  set(purpose APPLICATION)
  execute_process(COMMAND ${CPACK_VELO_READELF} -d ${CPACK_VELO_BINARY} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "Shared library: \\[[^]]+\\]" lines "${dynamic}")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE ".*\\[(.*)\\]" "\\1" soname "${line}")
    list(APPEND linked ${soname})
  endforeach()
endif()
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  write_document(${package})
endforeach()
