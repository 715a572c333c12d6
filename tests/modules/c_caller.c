/* A C program that starts and stops the library, as an application written in C does. */
#include "ZYLMsgModules.h"

int main(void) {
    ZYLMsgModules_initializeC();
    ZYLMsgModules_finalizeC();
    return 0;
}
