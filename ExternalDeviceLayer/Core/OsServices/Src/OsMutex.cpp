#include "OsMutex.h"

OsMutex::OsMutex(OsServices& roOsServices) : m_roOsServices(roOsServices)
{
    m_roOsServices.Mutex_Create(m_hMutex);
}

OsMutex::~OsMutex()
{
    m_roOsServices.Mutex_Destroy(m_hMutex);
}
