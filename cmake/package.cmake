# Packs the program with its guides and the laser board's programs, without and with the virtual
# laboratory beside it, and by itself what a crash dump is read with:
#
#   cmake -D version=1.0.0 -D source=FOLDER -D build=FOLDER -P package.cmake
file(GLOB_RECURSE guides RELATIVE ${source} ${source}/docs/*.md ${source}/docs/*.png
     ${source}/docs/*.svg)
list(PREPEND guides README.md virtual_lab/README.md) # the guides link to both
file(GLOB laboratory ${build}/laboratory/*.dll)
file(GLOB firmware ${build}/firmware/*.hex)

# Everything lies in one folder that bears the archive's name. Takes programs and libraries, and
# paths below the source folder.
function(pack name)
    cmake_parse_arguments(PARSE_ARGV 1 packed "" "" "PROGRAMS;PAGES")
    set(stage ${build}/package)
    file(REMOVE_RECURSE ${stage})
    file(COPY ${packed_PROGRAMS} DESTINATION ${stage}/${name})
    foreach(page ${packed_PAGES})
        get_filename_component(folder ${page} DIRECTORY)
        file(COPY ${source}/${page} DESTINATION ${stage}/${name}/${folder})
    endforeach()
    file(GLOB_RECURSE files RELATIVE ${stage} ${stage}/*)
    list(SORT files)
    execute_process(COMMAND ${CMAKE_COMMAND} -E tar cf ${build}/${name}.zip --format=zip -- ${files}
                    WORKING_DIRECTORY ${stage} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${stage})
endfunction()

pack(Lumascan-${version}-win64 PROGRAMS ${build}/Lumascan.exe ${firmware} PAGES ${guides})
pack(Lumascan-${version}-virtual-lab PROGRAMS ${build}/Lumascan.exe ${laboratory} ${firmware}
     PAGES ${guides})
pack(Lumascan-${version}-symbols PROGRAMS ${build}/Lumascan.debug)
