# bc_embed_file(target file symbol): at build time, turns `file` into the header
# embedded/<symbol>.h holding `bc::embedded::<symbol>`, a std::string_view over its bytes,
# regenerated whenever the file changes. Keeps templates and similar assets as real files
# in the source tree.
set(BC_EMBED_SCRIPT ${CMAKE_CURRENT_LIST_FILE})

if(CMAKE_SCRIPT_MODE_FILE)
  file(READ ${INPUT} bytes HEX)
  string(LENGTH "${bytes}" digits)
  math(EXPR size "${digits} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," chars "${bytes}")
  string(REGEX REPLACE "(('\\\\x..',){24})" "\\1\n" chars "${chars}")
  file(WRITE ${OUTPUT}.tmp
    "#pragma once\n// Generated from ${INPUT}; edit that file instead.\n"
    "#include <string_view>\n\nnamespace bc::embedded {\n\n"
    "inline constexpr char ${SYMBOL}Bytes[${size} + 1] = {\n${chars}'\\0'};\n"
    "inline constexpr std::string_view ${SYMBOL}{${SYMBOL}Bytes, ${size}};\n\n}  // namespace bc::embedded\n")
  file(RENAME ${OUTPUT}.tmp ${OUTPUT})
  return()
endif()

function(bc_embed_file target input symbol)
  set(output ${CMAKE_BINARY_DIR}/generated/embedded/${symbol}.h)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -DINPUT=${input} -DOUTPUT=${output} -DSYMBOL=${symbol}
            -P ${BC_EMBED_SCRIPT}
    DEPENDS ${input} ${BC_EMBED_SCRIPT}
    COMMENT "Embedding ${input}"
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
endfunction()
