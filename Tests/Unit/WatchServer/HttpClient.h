/*
 * A plain client for the tests, which can be as rude as they need: what it sends is up to them.
 */
#ifndef HTTP_CLIENT_H
#define HTTP_CLIENT_H

#include <string>

class CHttpClient
{
public:
    explicit CHttpClient(const std::string& szAddress);
    ~CHttpClient();
    CHttpClient(const CHttpClient&) = delete;
    CHttpClient& operator=(const CHttpClient&) = delete;

    bool IsConnected() const { return m_iSocket >= 0; }
    void Send(const std::string& szText) const;

    // Until a text has come, or the server closes, or ten seconds have passed; gives all that has come so far.
    const std::string& ReadUntil(const std::string& szText);
    // The same, and forgets what has come up to the end of the text; false when it has not come.
    bool TakeUntil(const std::string& szText);

    const std::string& ReadAll() { return ReadUntil("\x01 never \x01"); }

private:
    int m_iSocket;
    std::string m_szRead;
};

/* A whole request with "Host: localhost" and its whole answer. */
std::string HttpClient_Ask(const std::string& szAddress, const std::string& szRequestLine,
                           const std::string& szHeaders = "Host: localhost\r\n");

#endif
