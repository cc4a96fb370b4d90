/*
 * Keeps every watched card open from the list of devices to the end, because closing a card for the last time lets the
 * kernel set its modes anew. A card that was pulled is let go, for the kernel would give another number to it when it
 * returns. Thread-safe.
 */
#ifndef LINUX_BOARD_CARD_KEEPER_H
#define LINUX_BOARD_CARD_KEEPER_H

#include <map>
#include <mutex>
#include <string>

#include "KmsCard.h"

class CCardKeeper
{
public:
    /* Opens the card, unless it is kept already. 0 or a negative errno. */
    int Keep(const std::string& szNode)
    {
        const std::lock_guard oGuard(m_oMutex);
        CKmsCard& roCard = m_aoCards[szNode];
        return roCard.IsOpen() ? 0 : roCard.Open(szNode);
    }

    void LetGo(const std::string& szNode)
    {
        const std::lock_guard oGuard(m_oMutex);
        m_aoCards.erase(szNode);
    }

private:
    std::mutex m_oMutex;
    std::map<std::string, CKmsCard> m_aoCards;
};

#endif
