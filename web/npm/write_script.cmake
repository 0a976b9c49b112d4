# Makes a module script of the page's library.js, which is a classic one since browsers load no others from
# a disk, or of the thresholds.
#   cmake -DFROM=library.js|thresholds.json -DOUT=script.mjs -P write_script.cmake
file(READ "${FROM}" TEXT)
if(FROM MATCHES "\\.js$")
    file(WRITE "${OUT}" "${TEXT}\nexport { orvoOpen };\n")
else()
    file(WRITE "${OUT}" "// The thresholds that were measured with the models of this build; null where nobody did.\n"
                        "export const thresholds = ${TEXT};\n")
endif()
