// tamrix-audit: how the files lie on a tape, and whether they are what they were. See main.cpp for the map.
#include "main/run_program.h"

int main(int argc, char** argv) { return tamrix::runTamrixAudit(argc, argv); }
