# Deployment data, compiled into the program. The defaults point at the sandbox on loopback;
# a production build passes a file kept outside the repository: cmake -C deploy.cmake ...
set(KPS_BACKEND_PRODUCTION_URL "https://localhost:18443" CACHE STRING "Backend origin when environment != 0")
set(KPS_BACKEND_TEST_URL "https://localhost:18444" CACHE STRING "Backend origin when environment == 0")
set(KPS_OSS_ENDPOINT "https://127.0.0.1:18900" CACHE STRING "Object store endpoint (scheme and host)")
set(KPS_OSS_BUCKET "qzlp" CACHE STRING "Object store bucket")
set(KPS_OSS_ACCESS_KEY_ID "sandbox-access-key-id" CACHE STRING "Object store access key id")
set(KPS_OSS_ACCESS_KEY_SECRET "sandbox-access-key-secret" CACHE STRING "Object store access key secret")
set(KPS_CA_BUNDLE "${PROJECT_SOURCE_DIR}/sandbox/state/ca.pem" CACHE STRING
    "CA bundle for TLS; empty means the TLS library's default trust store")

configure_file(${PROJECT_SOURCE_DIR}/cmake/Deployment.h.in ${PROJECT_BINARY_DIR}/generated/Deployment.h @ONLY)
