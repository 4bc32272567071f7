# A later SDK.
s/(kSdkVersion = )[0-9]+/\199/
