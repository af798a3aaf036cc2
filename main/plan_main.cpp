// tamrix-plan: what a copy would do, how long the tape takes, and what is left to do. See main.cpp for the
// map.
#include "main/run_program.h"

int main(int argc, char** argv) { return tamrix::runTamrixPlan(argc, argv); }
