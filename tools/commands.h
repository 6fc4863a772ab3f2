// Sub-commands of the qbcode program; each returns the process exit status.
#pragma once

int cmdRead(int argc, char** argv);
int cmdRender(int argc, char** argv);
int cmdGrade(int argc, char** argv);
int cmdScan(int argc, char** argv);
