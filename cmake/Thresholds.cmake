# The thresholds that programs and the page show were measured with certain models. They come from
# FR_MODEL_DIR/thresholds.json and are shown only where they belong to the models of this build.
set(ORVO_THRESHOLDS "null") # JSON; null where there are none
set(record "${FR_MODEL_DIR}/thresholds.json")
if(EXISTS "${record}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${record}"
                 "${FR_MODEL_DIR}/align.safetensors" "${FR_MODEL_DIR}/fr.safetensors")
    set(models align fr)
    if(ORVO_BUILD_FIND)
        list(APPEND models find)
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                     "${FR_MODEL_DIR}/find.safetensors")
    endif()
    file(READ "${record}" text)
    set(fits TRUE)
    foreach(model IN LISTS models)
        string(JSON wanted ERROR_VARIABLE missing GET "${text}" ${model}_sha256)
        file(SHA256 "${FR_MODEL_DIR}/${model}.safetensors" digest)
        if(NOT digest STREQUAL wanted)
            set(fits FALSE)
        endif()
    endforeach()
    if(fits)
        string(JSON ORVO_THRESHOLDS GET "${text}" thresholds)
    else()
        message(WARNING "${record} was measured with other models than those beside it, so that no "
                        "thresholds will be shown: measure anew with tools/measure_thresholds.py")
    endif()
endif()
