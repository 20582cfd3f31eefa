# Deployment data, compiled into the program. The defaults point at the sandbox on loopback;
# a production build passes a file kept outside the repository: cmake -C deploy.cmake ...
set(KPS_BACKEND_PRODUCTION_URL "https://localhost:18443" CACHE STRING "Backend origin when environment != 0")
set(KPS_BACKEND_TEST_URL "https://localhost:18444" CACHE STRING "Backend origin when environment == 0")
set(KPS_OSS_ENDPOINT "https://127.0.0.1:18900" CACHE STRING "Object store endpoint (scheme and host)")
set(KPS_OSS_BUCKET "qzlp" CACHE STRING "Object store bucket")
set(KPS_OSS_ACCESS_KEY_ID "sandbox-access-key-id" CACHE STRING "Object store access key id")
set(KPS_OSS_ACCESS_KEY_SECRET "sandbox-access-key-secret" CACHE STRING "Object store access key secret")

# The sandbox's CA is made on this machine for the sandbox alone: it is the default trust only
# while every address is the sandbox's, and never trusted beside any other address. Otherwise,
# without a KPS_CA_BUNDLE of its own, a build trusts the system's store (on Windows the
# certificate store): a kiosk build whose deployment file forgets the CA still talks to its
# backend.
set(_kps_sandbox_ca "${PROJECT_SOURCE_DIR}/sandbox/state/ca.pem")
set(_kps_sandbox_only FALSE)
if(KPS_BACKEND_PRODUCTION_URL STREQUAL "https://localhost:18443" AND
   KPS_BACKEND_TEST_URL STREQUAL "https://localhost:18444" AND
   KPS_OSS_ENDPOINT STREQUAL "https://127.0.0.1:18900")
  set(_kps_sandbox_only TRUE)
endif()
if(DEFINED CACHE{KPS_CA_BUNDLE})
  set(KPS_TRUSTED_CA "${KPS_CA_BUNDLE}")
elseif(_kps_sandbox_only)
  set(KPS_TRUSTED_CA "${_kps_sandbox_ca}")
else()
  set(KPS_TRUSTED_CA "")
endif()
if(KPS_TRUSTED_CA STREQUAL _kps_sandbox_ca AND NOT _kps_sandbox_only)
  set(KPS_TRUSTED_CA "")
endif()

if(KPS_TRUSTED_CA STREQUAL _kps_sandbox_ca)
  set(KPS_TRUST "the sandbox CA (${KPS_TRUSTED_CA})")
elseif(NOT KPS_TRUSTED_CA STREQUAL "")
  set(KPS_TRUST "the CA bundle ${KPS_TRUSTED_CA}")
elseif(WIN32)
  set(KPS_TRUST "the Windows certificate store")
else()
  set(KPS_TRUST "the system's trust store (OpenSSL's default)")
endif()
message(STATUS "kiosk-print-service TLS trust: ${KPS_TRUST}")

configure_file(${PROJECT_SOURCE_DIR}/cmake/Deployment.h.in ${PROJECT_BINARY_DIR}/generated/Deployment.h @ONLY)
