# Fails when the shared library exports a name that is not on the allow-list
# below, or misses one of the public names it must have. An allow-list, so a
# new internal that leaks fails here without anyone naming it.
execute_process(COMMAND nm -D --defined-only -C ${LIBRARY} OUTPUT_VARIABLE listing RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()

# What may be exported, matched against each demangled name once the
# run-time type prefixes ("typeinfo for ", "vtable for ", thunks) and a
# template function's return type are taken off:
#   the public classes (kx followed by a capital) and the filter bodies,
#   the public free functions (kf followed by a capital),
#   the exported non-template workers behind the kf templates, the buffer's
#   archive operator,
#   the core's public nested classes whose type information the library emits,
#   standard-library templates the compiler instantiates with default
#   visibility, and AddressSanitizer's markers for exported globals.
set(allowed
  "^kx[A-Z][A-Za-z0-9]*(::|$|<)"
  "^kx_(TableFilter|GaborFilter|RadialFilter|GaborShape|RingShape|PelBuffer::Error)(::|$)"
  "^kf[A-Z][A-Za-z0-9]*(<|$)"
  "^kf_(ForwardFFT|InverseFFT|ComputeAngleImage|ComputeQuadrantImage)$"
  "^kf_(ApplyWindow|PhaseCorrelate|FindPeriodicComponents|RemovePeriodicTexture)$"
  "^kf_(FilterTiled|WelchSpectrum|PhaseCorrelateLarge)$"
  "^operator\\|\\|$"
  "^std::"
  "^__odr_asan\\.")

string(REPLACE "\n" ";" lines "${listing}")
foreach(line IN LISTS lines)
  if(line STREQUAL "")
    continue()
  endif()
  string(REGEX REPLACE "^[0-9a-fA-F]+ [A-Za-z] " "" name "${line}")
  string(REGEX REPLACE "^(typeinfo name for|typeinfo for|vtable for|VTT for|construction vtable for|non-virtual thunk to|virtual thunk to|guard variable for) " "" name "${name}")
  string(REGEX REPLACE "^construction vtable for .*-in-" "" name "${name}")
  string(REGEX REPLACE "\\(.*$" "" name "${name}")
  string(REGEX REPLACE "^[a-z_ ]+[&*]* (kf|std::)" "\\1" name "${name}")
  set(ok FALSE)
  foreach(pattern IN LISTS allowed)
    if(name MATCHES "${pattern}")
      set(ok TRUE)
      break()
    endif()
  endforeach()
  if(NOT ok)
    message(FATAL_ERROR "exported name is not on the allow-list: ${line}")
  endif()
endforeach()

foreach(public "kxFrequencyBuffer::kxFrequencyBuffer" "kxFrequencyDefs::BadCoord::errorNumber" "kf_ForwardFFT" "kf_InverseFFT"
               "kf_ComputeQuadrantImage" "kfFrequencyMapImage" "kx_TableFilter::apply" "kxFrequencyFilterImage::setImage"
               "kx_RadialFilter::frequency" "kxFrequencyFilterBandReject::dcProtectionRadius"
               "operator\\|\\|\\(kxArchive&, kxFrequencyBuffer&\\)"
               "kfWindowWeights" "kf_ApplyWindow" "kf_PhaseCorrelate" "kf_FindPeriodicComponents"
               "kfPeriodicRejectFilter" "kf_RemovePeriodicTexture"
               "kxFilterDescription::margin" "kxBandRejectDescription::makeFilter" "kxRowSource::read"
               "kxRowSink::write" "kfFilterTiled" "kf_FilterTiled" "kfTileMargin" "kfWelchSpectrum"
               "kf_WelchSpectrum")
  if(NOT listing MATCHES "${public}")
    message(FATAL_ERROR "public symbol ${public} is not exported")
  endif()
endforeach()
message(STATUS "exports ok")
