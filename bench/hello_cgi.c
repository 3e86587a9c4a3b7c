// The least that a program for each request can do.
#include <stdio.h>

int main(void) {
    return puts("Content-Type: application/json\r\n\r\n{\"resp\": {\"respCode\": 0}}") < 0;
}
