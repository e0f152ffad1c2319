// Entry point of the Vorlix print service and its administration tool.
#include <cstdio>

int main() {
    std::printf("Vorlix print service\n");
    return 0;
}
