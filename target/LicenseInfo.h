// The licence information kept for a host: who provides the licence, from which server and port,
// until when, and for which feature. Plain text fields; how they are obtained is the suite's business.
#pragma once

#include <string>

namespace vessa::target {

class LicenseInfo {
  public:
    const std::string& provider() const { return provider_; }
    const std::string& server() const { return server_; }
    const std::string& port() const { return port_; }
    const std::string& expiry() const { return expiry_; }
    const std::string& feature() const { return feature_; }

    void setProvider(const std::string& v) { provider_ = v; }
    void setServer(const std::string& v) { server_ = v; }
    void setPort(const std::string& v) { port_ = v; }
    void setExpiry(const std::string& v) { expiry_ = v; }
    void setFeature(const std::string& v) { feature_ = v; }

  private:
    std::string provider_;
    std::string server_;
    std::string port_;
    std::string expiry_;
    std::string feature_;
};

}  // namespace vessa::target
