# Writes the module and the sample faces into a script, so that the page works from a disk, too, where
# browsers fetch nothing.
#   cmake -DMODULE=orvo_web.wasm -DSAMPLE_A=a.png -DSAMPLE_B=b.png -DTHRESHOLDS=thresholds.json
#         -DPROJECT=address -DOUT=module.js -P write_module.cmake
foreach(name MODULE SAMPLE_A SAMPLE_B)
    execute_process(COMMAND base64 -w 0 "${${name}}" OUTPUT_VARIABLE ${name}_TEXT
                    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(READ "${THRESHOLDS}" THRESHOLDS_TEXT)
file(WRITE "${OUT}"
     "// The library as WebAssembly, and two sample faces, in base 64; the thresholds that were measured\n"
     "// with its models, null where nobody did; and where more about the project is to be read.\n"
     "const ORVO_MODULE = \"${MODULE_TEXT}\";\n"
     "const ORVO_SAMPLES = {\n"
     "    a: \"data:image/png;base64,${SAMPLE_A_TEXT}\",\n"
     "    b: \"data:image/png;base64,${SAMPLE_B_TEXT}\",\n"
     "};\n"
     "const ORVO_THRESHOLDS = ${THRESHOLDS_TEXT};\n"
     "const ORVO_PROJECT = \"${PROJECT}\";\n")
