# The thresholds that programs and the page show were measured with certain models. They come from
# FR_MODEL_DIR/thresholds.json and are shown only where they belong to the models of this build.
set(ORVO_THRESHOLDS "null") # JSON; null where there are none
set(record "${FR_MODEL_DIR}/thresholds.json")
if(EXISTS "${record}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${record}"
                 "${FR_MODEL_DIR}/align.safetensors" "${FR_MODEL_DIR}/fr.safetensors")
    file(READ "${record}" text)
    set(fits TRUE)
    foreach(model align fr)
        string(JSON wanted GET "${text}" ${model}_sha256)
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
