# Run by ctest in script mode; see CMakeLists.txt beside it.
cmake_policy(SET CMP0057 NEW)
find_program(NM nm REQUIRED)
execute_process(COMMAND ${NM} -D --defined-only ${LIB} OUTPUT_VARIABLE syms RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
string(REPLACE "\n" ";" lines "${syms}")
set(names "")
foreach(line ${lines})
  string(REGEX REPLACE "^[0-9a-f]* *[A-Za-z] " "" name "${line}")
  list(APPEND names "${name}")
endforeach()

foreach(forbidden round roundf)
  if(forbidden IN_LIST names)
    message(FATAL_ERROR "the library must not export `${forbidden}`")
  endif()
endforeach()
foreach(name ${names})
  if(name MATCHES "vrncal_detail")
    message(FATAL_ERROR "internal symbol exported: ${name}")
  endif()
endforeach()

# A sample of the API hosts link by mangled name.
foreach(required
    _Z9kel_roundd
    DELIMITER
    _ZN6VrnCal10CalibPointERK9tagLenPar12tagKelPointFRS3_
    _ZN6VrnCal11LP2DPEX_SFTERK12tagKelPointFRS0_RK9tagLenParb
    _ZN8CBcdFile11LoadBcdFileEPKcR9tagLenPar
    _ZN9CCalibAlg15CalibPoint2_newERK9tagLenPar12tagKelPointFRS3_
    _ZN9CCalibAlg9GetGridDRERK9tagLenParRK12tagKelPointFRS3_S6_RK8tagStack
    _ZN9CMvLsmFit3OLSEv
    _ZN6MVLPkg5GaussESt6vectorIS0_IdSaIdEESaIS2_EE
    _ZN4Line7GetLineE12tagKelPointFS0_
    vrncal_create vrncal_load vrncal_correct vrncal_correct_points vrncal_validate vrncal_version)
  if(NOT required IN_LIST names)
    message(FATAL_ERROR "missing export: ${required}")
  endif()
endforeach()
message(STATUS "${LIB}: exports checked")
