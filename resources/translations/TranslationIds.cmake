# Keeps the id lists of the translation files in step, with nothing but CMake.
#
#   cmake -DREFERENCE=talvo_en.ts -DTRANSLATION=talvo_de.ts -P TranslationIds.cmake
#       Fails when a text of REFERENCE has no finished translation in
#       TRANSLATION: its message missing, its translation empty, or marked
#       unfinished, vanished or obsolete. Ids TRANSLATION has beyond
#       REFERENCE are only warned about. With the English file as both, it
#       checks that every English text is there.
#
#   cmake -DLUPDATE=lupdate "-DLUPDATE_ARGS=..." -DCODE=code.ts -DTS_DIR=translations
#         -P TranslationIds.cmake
#       Runs LUPDATE with LUPDATE_ARGS (a list) -ts CODE, a file of its own,
#       to learn the ids the code looks up. Each talvo_*.ts of TS_DIR gets the
#       ids it lacks appended as unfinished messages (source = id, as in the
#       files by hand); ids the code no longer uses are listed, not removed.
#
# The files are read as text, one <message>...</message> at a time: they are
# written by lupdate or by hand in the same shape, and an id is a plain key
# (no ";", which would split a CMake list; no plural forms).

cmake_minimum_required(VERSION 3.25)

# The five entities XML writers use, so "Printer's" matches "Printer&apos;s".
function(talvo_xml_unescape text out)
    string(REPLACE "&apos;" "'" text "${text}")
    string(REPLACE "&quot;" "\"" text "${text}")
    string(REPLACE "&lt;" "<" text "${text}")
    string(REPLACE "&gt;" ">" text "${text}")
    string(REPLACE "&amp;" "&" text "${text}")
    set(${out} "${text}" PARENT_SCOPE)
endfunction()

# Sets <prefix>_IDS to every message id of `file` and <prefix>_FINISHED to
# those whose translation is there and finished.
function(talvo_read_messages file prefix)
    file(READ "${file}" text)
    set(ids)
    set(finished)
    while(TRUE)
        string(FIND "${text}" "<message" begin)
        if(begin EQUAL -1)
            break()
        endif()
        string(SUBSTRING "${text}" ${begin} -1 text)
        string(FIND "${text}" "</message>" end)
        if(end EQUAL -1)
            message(FATAL_ERROR "${file}: a <message> is not closed")
        endif()
        string(SUBSTRING "${text}" 0 ${end} msg)
        math(EXPR end "${end} + 10")
        string(SUBSTRING "${text}" ${end} -1 text)

        if(NOT msg MATCHES "^<message[^>]* id=\"([^\"]*)\"")
            message(FATAL_ERROR "${file}: a message without an id (the files are id-based)")
        endif()
        talvo_xml_unescape("${CMAKE_MATCH_1}" id)
        list(APPEND ids "${id}")
        # <translation>text</translation> with no type: <translation/>,
        # an empty one or one still marked by lupdate do not count.
        if(msg MATCHES "<translation>[ \t\r\n]*[^ \t\r\n<]")
            list(APPEND finished "${id}")
        endif()
    endwhile()
    set(${prefix}_IDS "${ids}" PARENT_SCOPE)
    set(${prefix}_FINISHED "${finished}" PARENT_SCOPE)
endfunction()

function(talvo_check_translation reference translation)
    talvo_read_messages("${reference}" ref)
    talvo_read_messages("${translation}" tr)
    get_filename_component(name "${translation}" NAME)
    set(untranslated)
    foreach(id IN LISTS ref_IDS)
        if(NOT id IN_LIST tr_FINISHED)
            string(APPEND untranslated "\n  ${id}")
        endif()
    endforeach()
    foreach(id IN LISTS tr_IDS)
        if(NOT id IN_LIST ref_IDS)
            message(WARNING "${name}: \"${id}\" has no English text; the code may no longer use it")
        endif()
    endforeach()
    if(untranslated)
        message(FATAL_ERROR "${name} has no finished translation for these texts:${untranslated}\n"
                            "Translate them (Qt Linguist, or edit the file) and build again.")
    endif()
endfunction()

# The code has no engineering English (//%), so lupdate warns once per id
# that it has no source: that is how the files are meant, and the warnings
# would bury anything worth reading.
function(talvo_find_code_ids lupdate arguments code)
    file(REMOVE "${code}")
    execute_process(COMMAND "${lupdate}" ${arguments} -ts "${code}"
        OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
    string(REGEX REPLACE "lupdate warning: Message with id '[^\n]*' has no source\\.\n" "" output "${output}")
    if(NOT output STREQUAL "")
        message(STATUS "${output}")
    endif()
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "lupdate failed (${result})")
    endif()
endfunction()

function(talvo_merge_code_ids code folder)
    talvo_read_messages("${code}" code)
    file(GLOB files "${folder}/talvo_*.ts")
    foreach(file IN LISTS files)
        get_filename_component(name "${file}" NAME)
        talvo_read_messages("${file}" ts)
        set(added "")
        set(count 0)
        foreach(id IN LISTS code_IDS)
            if(NOT id IN_LIST ts_IDS)
                string(REPLACE "&" "&amp;" escaped "${id}")
                string(REPLACE "<" "&lt;" escaped "${escaped}")
                string(REPLACE "\"" "&quot;" escaped "${escaped}")
                string(APPEND added "    <message id=\"${escaped}\">\n"
                                    "        <source>${escaped}</source>\n"
                                    "        <translation type=\"unfinished\"></translation>\n"
                                    "    </message>\n")
                math(EXPR count "${count} + 1")
                message(STATUS "${name}: new text \"${id}\"")
            endif()
        endforeach()
        foreach(id IN LISTS ts_IDS)
            if(NOT id IN_LIST code_IDS)
                message(STATUS "${name}: \"${id}\" is not looked up by the code")
            endif()
        endforeach()
        if(count GREATER 0)
            file(READ "${file}" text)
            string(FIND "${text}" "</context>" at REVERSE)
            if(at EQUAL -1)
                message(FATAL_ERROR "${file}: no </context> to add the new texts to")
            endif()
            string(SUBSTRING "${text}" 0 ${at} head)
            string(SUBSTRING "${text}" ${at} -1 tail)
            file(WRITE "${file}" "${head}${added}${tail}")
            message(STATUS "${name}: ${count} new text(s) to translate")
        endif()
    endforeach()
endfunction()

if(DEFINED REFERENCE AND DEFINED TRANSLATION)
    talvo_check_translation("${REFERENCE}" "${TRANSLATION}")
elseif(DEFINED LUPDATE AND DEFINED CODE AND DEFINED TS_DIR)
    talvo_find_code_ids("${LUPDATE}" "${LUPDATE_ARGS}" "${CODE}")
    talvo_merge_code_ids("${CODE}" "${TS_DIR}")
else()
    message(FATAL_ERROR "Give REFERENCE and TRANSLATION, or LUPDATE, LUPDATE_ARGS, CODE and TS_DIR")
endif()
