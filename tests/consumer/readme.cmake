# The program that ${README} shows is the one of ${PROGRAM}.
file(READ ${README} text)
file(READ ${PROGRAM} program)
string(FIND "${text}" "```cpp\n${program}```" found)
if(found EQUAL -1)
    message(FATAL_ERROR "${README} shows another program than ${PROGRAM}")
endif()
