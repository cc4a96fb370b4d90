#include "StandardFiles.h"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

void StandardFiles_KeepPlaces()
{
    for (const int iFile : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
        if (fcntl(iFile, F_GETFD) < 0)
        {
            // The lowest number that is free, for the other direction.
            static_cast<void>(open("/dev/null", iFile == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}
