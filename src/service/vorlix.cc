// Vorlix: the print service and its own administration tool in one program.
#include "service/command_line.h"

int main(int argc, char** argv) {
    return vx::VorlixMain(argc, argv);
}
