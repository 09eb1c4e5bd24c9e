// A change of the client's configuration, as the crypto service is told of it in FIPS mode.
#pragma once

// True when changes are to be announced: in FIPS mode, while the client's scheduler runs.
bool IsChangeAnnounced();

// One change, from its begin to its commit: exactly one of each is sent, the commit whatever became
// of the begin and of the work in between. What fails puts the client into FIPS error mode and is
// not reported otherwise.
class ConfigurationChange {
  public:
    ConfigurationChange();
    ConfigurationChange(const ConfigurationChange&) = delete;
    ConfigurationChange& operator=(const ConfigurationChange&) = delete;
    ~ConfigurationChange();

    // False when the service did not take the begin: nothing may be changed then.
    bool HasBegun() const { return hasBegun_; }

  private:
    bool hasBegun_;
};

// Forgets the state that the installer keeps for FIPS mode, where the client's scheduler does not
// run to keep it itself.
void ForgetInstallerState();
