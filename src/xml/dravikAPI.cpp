#include "xml/dravikAPI.h"

DRAVIK_PLAYER Player;
DRAVIK_CONTENT Content;
DRAVIK_DLREQUEST DLRequest;
DRAVIK_CONFIGURATION Configuration;
DRAVIK_CONFIGURATION_CH ConfigurationCH;
char g_saved_content_id[39];
int g_PlayerValid;
int g_ContentValid;
int g_DLRequestValid;
int g_ConfigurationValid;
int g_ConfigurationCHValid;

void dA_Initialize(void)
{
    Player = {};
    Content = {};
    DLRequest = {};
    Configuration = {};
    ConfigurationCH = {};
    g_PlayerValid = 0;
    g_ContentValid = 0;
    g_DLRequestValid = 0;
    g_ConfigurationValid = 0;
    g_ConfigurationCHValid = 0;
}

int dA_IsPlayerValid(void) { return g_PlayerValid; }
int dA_IsDLRequestValid(void) { return g_DLRequestValid; }
int dA_IsContentValid(void) { return g_ContentValid; }
int dA_IsConfigurationValid(void) { return g_ConfigurationValid; }
int dA_IsConfigurationCHValid(void) { return g_ConfigurationCHValid; }

DRAVIK_PLAYER* dA_Player(void) { return &Player; }
DRAVIK_CONTENT* dA_Content(void) { return &Content; }
DRAVIK_DLREQUEST* dA_DLRequest(void) { return &DLRequest; }
DRAVIK_CONFIGURATION* dA_Configuration(void) { return &Configuration; }
DRAVIK_CONFIGURATION_CH* dA_ConfigurationCH(void) { return &ConfigurationCH; }
