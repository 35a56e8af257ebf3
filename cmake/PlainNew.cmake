# Fails when an object file of the node calls a form of operator new that the standard defines: by a plain `new T`,
# or inside a standard container. The compilers take these for what the standard promises, and this library's are
# not: clang drops the null check of a plain `new`, and reads of the zeros even after a `new (std::nothrow)`.
#   cmake -DNM=... -DOBJECTS=FILE;... -P PlainNew.cmake
foreach(lines -l "")  # with the line of each call, which GNU's nm tells
  execute_process(COMMAND ${NM} -A -u ${lines} ${OBJECTS}
    OUTPUT_VARIABLE calls ERROR_VARIABLE error RESULT_VARIABLE failed)
  if(NOT failed)
    break()
  endif()
endforeach()
# The node's own form has to be there: what cannot be seen of it would not be seen of the others.
if(failed OR NOT calls MATCHES ": +U _Znw[jm]iiPKcj[\t\n]")
  message(FATAL_ERROR "cannot tell which operator new the node's object files call: ${error}")
endif()
set(forms "_Zn[aw][jm](RKSt9nothrow_t|St11align_val_t(RKSt9nothrow_t)?)?")
string(REGEX MATCHALL "[^/\n]*: +U ${forms}(\t[^\n]*)?\n" plain "${calls}")
if(plain)
  string(REGEX REPLACE "([^;]*): +U " "  \\1: " plain "${plain}")
  message(FATAL_ERROR
    "The node makes its objects with new (0, 0, nullptr, 0) T; another operator new is called by\n" ${plain})
endif()
