# A later SDK, with more room for the build tag.
s/(kSdkVersion = )[0-9]+/\199/
s/(char text)\[[0-9]+\]/\1[1000]/
