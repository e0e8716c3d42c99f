# AttachDrive.ps1 -KeyFile SECn.iscsi [-AnswerFile FILE]: makes a drive of a mounted volume, with WNBD where it is
# installed, else with the iSCSI initiator of Windows. Needs an elevated shell. The secret is read from the file,
# which only the user can open. The answer is "done" and the letters of the drive, "refused" and why, or "missing";
# the exit code 0, 1 or 2. A volume that is attached already stays so. For Windows PowerShell 5.1; not yet seen on a
# real Windows.
param([Parameter(Mandatory = $true)] [string] $KeyFile, [string] $AnswerFile)

$ErrorActionPreference = 'Stop'
$ProgressPreference = 'SilentlyContinue'
# Only what an administrator has installed may run with his rights.
$env:PSModulePath = Join-Path $PSHOME 'Modules'

function Stop-With([int] $code, [string] $answer) {
    if ($AnswerFile) {
        [IO.File]::WriteAllText($AnswerFile, $answer)
    }
    else {
        Write-Output $answer
    }
    exit $code
}

function Find-Wnbd {
    $folders = @((Join-Path ([Environment]::GetFolderPath('ProgramFiles')) 'Ceph\bin'))
    $folders += [Environment]::GetEnvironmentVariable('Path', 'Machine') -split ';' | Where-Object { $_ }
    $folders | ForEach-Object { Join-Path $_ 'wnbd-client.exe' } | Where-Object { Test-Path -LiteralPath $_ } |
        Select-Object -First 1
}

# Waits for the disk that a condition chooses: it appears some time after it has been connected.
function Wait-Disk([scriptblock] $find) {
    for ($tries = 0; $tries -lt 100; $tries++) {
        $disk = & $find
        if ($disk) {
            return $disk
        }
        Start-Sleep -Milliseconds 200
    }
    throw 'Windows is connected to the volume, but shows no disk of it.'
}

# A disk without partitions gets no letter; others get theirs some time after the disk has come.
function Get-Letters([uint32] $number) {
    for ($tries = 0; $tries -lt 25; $tries++) {
        # The letter of a partition that has none is the character 0.
        $letters = @(Get-Partition -DiskNumber $number -ErrorAction SilentlyContinue |
                Where-Object DriveLetter -Match '[A-Z]' | ForEach-Object { "$($_.DriveLetter):" })
        if ($letters -or (Get-Disk -Number $number).PartitionStyle -eq 'RAW') {
            return $letters
        }
        Start-Sleep -Milliseconds 200
    }
}

# The name of the export, which is the key to it, can be given on the client's command line only: while the drive is
# attached, administrators and the user's own programs can read it there.
function Connect-ByWnbd([string] $client) {
    $uri = [Uri] (Get-Content -LiteralPath ([IO.Path]::ChangeExtension($KeyFile, '.uri')) -TotalCount 1)
    $name = $uri.AbsolutePath.TrimStart('/')
    if (Get-Disk | Where-Object SerialNumber -EQ $name) {
        return Get-Disk | Where-Object SerialNumber -EQ $name
    }
    # Since version 0.5 the client serves the disk itself and ends with it; before, it ended at once.
    $words = @('map', $name, $uri.Host, '--port', $uri.Port)
    $process = Start-Process -FilePath $client -ArgumentList $words -WindowStyle Hidden -PassThru
    $process.Handle | Out-Null # without it there is no exit code later
    Wait-Disk {
        if ($process.HasExited -and $process.ExitCode -ne 0) {
            throw "wnbd-client ended with code $($process.ExitCode)."
        }
        Get-Disk | Where-Object SerialNumber -EQ $name
    }
}

function Connect-ByInitiator($keys) {
    if ((Get-Service MSiSCSI).Status -ne 'Running') {
        Start-Service MSiSCSI
    }
    $portal = @{ TargetPortalAddress = $keys.address; TargetPortalPortNumber = [uint16] $keys.port }
    $proof = @{ AuthenticationType = 'ONEWAYCHAP'; ChapUsername = $keys.user; ChapSecret = $keys.secret }
    $session = Get-IscsiSession -ErrorAction SilentlyContinue | Where-Object TargetNodeAddress -EQ $keys.target
    if (-not $session) {
        # One of this port that an earlier volume has left knows another secret.
        Remove-IscsiTargetPortal @portal -Confirm:$false -ErrorAction SilentlyContinue
        New-IscsiTargetPortal @portal @proof | Out-Null
        try {
            $session = Connect-IscsiTarget -NodeAddress $keys.target @portal @proof -IsPersistent $false
        }
        catch {
            Remove-IscsiTargetPortal @portal -Confirm:$false -ErrorAction SilentlyContinue
            throw
        }
    }
    Wait-Disk { $session | Get-Disk -ErrorAction SilentlyContinue }
}

try {
    $wnbd = Find-Wnbd
    if ($wnbd) {
        $disk = Connect-ByWnbd $wnbd
    }
    elseif (Get-Command Connect-IscsiTarget -ErrorAction SilentlyContinue) {
        # "key=value" a line; names and secrets hold no backslash.
        $disk = Connect-ByInitiator (ConvertFrom-StringData (Get-Content -LiteralPath $KeyFile -Raw))
    }
    else {
        Stop-With 2 'missing'
    }
    if ($disk.IsOffline) {
        Set-Disk -Number $disk.Number -IsOffline $false
    }
    if ($disk.IsReadOnly) {
        Set-Disk -Number $disk.Number -IsReadOnly $false
    }
    Update-Disk -Number $disk.Number
    $letters = Get-Letters $disk.Number
}
catch {
    Stop-With 1 "refused $_"
}
Stop-With 0 "done $($letters -join ' ')".TrimEnd()
