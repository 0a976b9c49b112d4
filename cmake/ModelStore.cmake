# Packs and enciphers the models into sources that the library compiles in.
#
# pack_models runs on the build machine, so a cross build compiles it there in a build of its own. The builds for all
# machines in the folder build/ share that one: it is locked while one of them brings it up to date.
# ORVO_PACK_MODELS names one that is there already, for builds whose own sources are not to be trusted with it.

set(ORVO_STORE_DIR "${PROJECT_BINARY_DIR}/model_store")
set(ORVO_STORE_SOURCES
    "${ORVO_STORE_DIR}/align_store.cpp"
    "${ORVO_STORE_DIR}/fr_store.cpp"
    "${ORVO_STORE_DIR}/wb_decrypt_table.cpp")
# The forward tables, for the host's stand-in of the sibling cipher library.
set(ORVO_HOST_CIPHER_SOURCES "${ORVO_STORE_DIR}/wb_encrypt_table.cpp")

set(ORVO_PACK_MODELS "" CACHE FILEPATH "A pack_models that is there already; empty: build it")
if(ORVO_PACK_MODELS)
    set(ORVO_PACK_MODELS_TARGET)
elseif(CMAKE_CROSSCOMPILING)
    include(ExternalProject)
    set(packer_folder "${PROJECT_BINARY_DIR}/host_pack_models")
    set(locked)
    find_program(ORVO_FLOCK flock)
    cmake_path(GET PROJECT_BINARY_DIR PARENT_PATH builds)
    if(ORVO_FLOCK AND CMAKE_GENERATOR STREQUAL "Ninja" AND builds STREQUAL "${PROJECT_SOURCE_DIR}/build")
        set(packer_folder "${builds}/host_pack_models")
        set(locked "${ORVO_FLOCK}" "${packer_folder}.lock")
    endif()
    set(sources "${PROJECT_SOURCE_DIR}/tools/pack_models")
    ExternalProject_Add(host_pack_models
        SOURCE_DIR "${sources}"
        BINARY_DIR "${packer_folder}"
        CONFIGURE_COMMAND ${locked} "${CMAKE_COMMAND}" -G "${CMAKE_GENERATOR}" -S "${sources}" -B "${packer_folder}"
                          -DCMAKE_BUILD_TYPE=Release
        BUILD_COMMAND ${locked} "${CMAKE_COMMAND}" --build "${packer_folder}"
        BUILD_ALWAYS ON
        INSTALL_COMMAND ""
        BUILD_BYPRODUCTS "${packer_folder}/pack_models")
    set(ORVO_PACK_MODELS "${packer_folder}/pack_models")
    set(ORVO_PACK_MODELS_TARGET host_pack_models)
else()
    add_subdirectory(tools/pack_models)
    set(ORVO_PACK_MODELS pack_models)
    set(ORVO_PACK_MODELS_TARGET pack_models)
endif()

set(custom_data)
if(FR_CUSTOM_DATA)
    set(custom_data --custom-data "${FR_CUSTOM_DATA}")
endif()
add_custom_command(
    OUTPUT ${ORVO_STORE_SOURCES} ${ORVO_HOST_CIPHER_SOURCES}
    COMMAND ${ORVO_PACK_MODELS}
            --align "${FR_MODEL_DIR}/align.safetensors"
            --fr "${FR_MODEL_DIR}/fr.safetensors"
            --key "${FR_KEY_FILE}"
            --out "${ORVO_STORE_DIR}"
            ${custom_data}
    DEPENDS ${ORVO_PACK_MODELS_TARGET} "${ORVO_PACK_MODELS}"
            "${FR_MODEL_DIR}/align.safetensors" "${FR_MODEL_DIR}/fr.safetensors" "${FR_KEY_FILE}"
    COMMENT "Packing and enciphering the models"
    VERBATIM)
add_custom_target(model_store DEPENDS ${ORVO_STORE_SOURCES} ${ORVO_HOST_CIPHER_SOURCES})
