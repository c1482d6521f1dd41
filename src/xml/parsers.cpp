#include "xml/dravikAPI.h"

// The configuration-side parsers are not written yet: every such document counts as
// unreadable, so the agent keeps the empty records it starts with.
int dA_ParseConfigurationCH(const char*)
{
    g_ConfigurationCHValid = 0;
    return -1;
}

int dA_ParseConfiguration(const char*, dA_ItemCallback)
{
    g_ConfigurationValid = 0;
    return -1;
}

int dA_ParsePlayer(const char*, dA_ItemCallback)
{
    g_PlayerValid = 0;
    return -1;
}

int dA_ParseDLRequest(const char*)
{
    g_DLRequestValid = 0;
    return -1;
}
