// The program was linked against its board: the loader has brought it, or the program would not run.
#include "BoardLoader.h"

Bool32 BoardLoader_Load(VTSTR4096& szError)
{
    szError[0] = '\0';
    return 1;
}
